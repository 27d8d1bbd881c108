// The threads of a libcurl session, and whose turn it is.
//
// Every hand-over from thread to thread costs a request some of its time, so there is none that can
// be spared: a request is sent on the thread that resumes it when nobody else is at work on the
// loop, and the thread that received an answer calls the handler. That thread is always the same
// one, the caller: between handlers it waits for sockets. While it is in a handler a second thread,
// the deputy, does that.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "src/platform/Mutex.h"
#include "src/ports/CurlSessionLoop.h"
#include "src/ports/CurlSessionTask.h"

namespace qvr {

// Thread rule: any. The threads keep it alive; they end after close().
class CurlSessionCrew : public std::enable_shared_from_this<CurlSessionCrew> {
 public:
  // Starts the threads and gives them the loop. Returns why there is none; empty when there are.
  std::string employ(std::unique_ptr<CurlSessionLoop> loop);

  // Sends the task's request by the loop, and delivers the task when its outcome is known.
  void send(Ref<CurlSessionTask> task);

  // Has the task's handler called, later and on the caller's thread: one at a time, in this order.
  void deliver(Ref<CurlSessionTask> task);

  // Makes the loop look at its tasks, of which one was cancelled.
  void wake();

  // To be called when no task is in flight.
  void close();

 private:
  void startCaller() QVR_REQUIRES(mutex_);
  void startDeputy() QVR_REQUIRES(mutex_);
  void runCaller() noexcept;
  void runDeputy() noexcept;
  void callHandlers() QVR_REQUIRES(mutex_);
  void attend() QVR_REQUIRES(mutex_);
  bool maySendHere() const QVR_REQUIRES(mutex_);
  void sendHere() noexcept QVR_REQUIRES(mutex_);
  void wakeAttendant() QVR_REQUIRES(mutex_);
  bool isUnattended() const QVR_REQUIRES(mutex_);
  void takeArrivals() QVR_REQUIRES(mutex_);
  void callForAttention() QVR_REQUIRES(mutex_);
  void addFinished(std::vector<Ref<CurlSessionTask>> finished) QVR_REQUIRES(mutex_);

  Mutex mutex_;
  std::condition_variable_any callerIsNeeded_;
  std::condition_variable_any deputyIsNeeded_;
  std::unique_ptr<CurlSessionLoop> loop_;      // used by whoever has set isAttended_
  pid_t process_ QVR_GUARDED_BY(mutex_) = -1;  // that of the threads
  std::vector<Ref<CurlSessionTask>> arrivals_ QVR_GUARDED_BY(mutex_);
  std::deque<Ref<CurlSessionTask>> finished_ QVR_GUARDED_BY(mutex_);
  bool isAttended_ QVR_GUARDED_BY(mutex_) = false;      // somebody is at work on the loop
  bool isBusy_ QVR_GUARDED_BY(mutex_) = false;          // the loop has requests
  bool hasFinishedOne_ QVR_GUARDED_BY(mutex_) = false;  // a request, by which the store is read
  bool isCallingHandlers_ QVR_GUARDED_BY(mutex_) = false;
  bool hasCaller_ QVR_GUARDED_BY(mutex_) = false;
  bool hasDeputy_ QVR_GUARDED_BY(mutex_) = false;
  bool isClosed_ QVR_GUARDED_BY(mutex_) = false;
};

}  // namespace qvr
