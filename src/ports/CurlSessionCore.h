// What the tasks of a libcurl session share, and keep alive while they are in flight: the callback
// queue, and the thread that carries the requests, made when the first of them is resumed.
#pragma once

#include <memory>
#include <string>

#include "QVROAuth2Client/platform/Executor.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Mutex.h"
#include "src/ports/CurlLibrary.h"
#include "src/ports/CurlSessionLoop.h"
#include "src/ports/CurlSessionTask.h"

namespace qvr {

// Supplies the library; called for the first request that is sent.
using CurlLoader = const CurlLibrary& (*)();

// Thread rule: any.
class CurlSessionCore final : public Object {
 public:
  CurlSessionCore(const URLSessionOptions& options, CurlLoader loader);

  // Sends the task's request, or finishes the task when that cannot be done.
  void start(Ref<CurlSessionTask> task);

  // Makes the thread look at its tasks, of which one was cancelled.
  void wake();

 private:
  ~CurlSessionCore() override = default;
  std::string ensureLoop() QVR_REQUIRES(mutex_);
  std::string addToLoop(const Ref<CurlSessionTask>& task);

  const URLSessionOptions options_;
  const CurlLoader loader_;
  const Ref<Executor> callbackQueue_;
  Mutex mutex_;
  std::unique_ptr<CurlSessionLoop> loop_ QVR_GUARDED_BY(mutex_);  // goes first: it uses the queue
};

}  // namespace qvr
