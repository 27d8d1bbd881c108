// The thread of a libcurl session: it carries every request in flight, sleeps while nothing
// happens, and keeps connections and the parsed certificate store from one request to the next.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Mutex.h"
#include "src/ports/CurlLibrary.h"
#include "src/ports/CurlSessionTask.h"
#include "src/ports/CurlSessionTransfer.h"

namespace qvr {

// Thread rule: add() and wake() from any thread once startThread() has succeeded. Destroyed when no
// task is in flight, on any thread but its own.
class CurlSessionLoop {
 public:
  CurlSessionLoop(const CurlLibrary& curl, const URLSessionOptions& options,
                  Executor& callbackQueue);
  ~CurlSessionLoop();
  CurlSessionLoop(const CurlSessionLoop&) = delete;
  CurlSessionLoop& operator=(const CurlSessionLoop&) = delete;

  // Returns why there is no thread; empty when there is one.
  std::string startThread();

  // Sends the task's request, and finishes the task when its outcome is known.
  void add(Ref<CurlSessionTask> task);

  // Ends tasks that were cancelled.
  void wake();

 private:
  using TimePoint = CurlSessionTransfer::Clock::time_point;

  // A task that waits for its turn: a host gets so many connections and no more.
  struct Waiting {
    Ref<CurlSessionTask> task;
    std::string host;
    TimePoint deadline;  // of the whole request
  };
  struct Flight {
    Ref<CurlSessionTask> task;
    std::string host;
    std::unique_ptr<CurlSessionTransfer> transfer;
  };
  using Flights = std::map<CURL*, Flight>;

  void run();
  bool takeArrivals();
  bool perform();
  bool endFinished();
  void endCancelledAndOverdue();
  void launchWaiting();
  bool isBusy(const std::string& host) const;
  void launch(Waiting waiting);
  void endAll(CURLcode result);
  Flights::iterator end(Flights::iterator flight, CURLcode result);
  bool wait();

  const CurlLibrary& curl_;
  URLSessionOptions options_;
  Executor& callbackQueue_;
  CURLM* const multi_;
  Flights flights_;               // the thread's own
  std::vector<Waiting> waiting_;  // the thread's own, oldest first

  Mutex mutex_;
  std::vector<Waiting> arrivals_ QVR_GUARDED_BY(mutex_);
  bool isStopping_ QVR_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace qvr
