// What the tasks of a libcurl session share, and keep alive while they are in flight: the threads
// that carry the requests and call the handlers, and the loop, made when the first task is resumed.
#pragma once

#include <memory>
#include <string>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Mutex.h"
#include "src/ports/CurlLibrary.h"
#include "src/ports/CurlSessionCrew.h"
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

  // Makes the session look at its tasks, of which one was cancelled.
  void wake() { crew_->wake(); }

 private:
  ~CurlSessionCore() override;
  std::string ensureLoop();

  const URLSessionOptions options_;
  const CurlLoader loader_;
  const std::shared_ptr<CurlSessionCrew> crew_;
  Mutex mutex_;
  bool hasLoop_ QVR_GUARDED_BY(mutex_) = false;
};

}  // namespace qvr
