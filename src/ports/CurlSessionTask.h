// One request of a libcurl session, as its owner sees it: a state, a handler, and what the request
// came to.
#pragma once

#include <optional>

#include "QVROAuth2Client/platform/URLSession.h"
#include "src/platform/Mutex.h"
#include "src/ports/CurlSessionByteCount.h"

namespace qvr {

class CurlSessionCore;

// Exactly one of data and error is there.
struct CurlSessionOutcome {
  std::optional<Data> data;
  HTTPURLResponse response;
  ErrorPtr error;
};

// Thread rule: any. A task in flight is held by the session's threads; it holds the session's core
// until its handler has run.
class CurlSessionTask final : public URLSessionDataTask {
 public:
  CurlSessionTask(Ref<CurlSessionCore> core, URLRequest request, DataTaskCompletionHandler handler);

  void resume() override;
  void cancel() override;
  State state() const override;
  std::optional<std::int64_t> countOfBytesReceived() const override { return byteCount_.value(); }

  // Unchanged until the task is finished.
  const URLRequest& request() const { return request_; }

  // For the transfer of the request, which tells it of what arrives.
  CurlSessionByteCount& byteCount() { return byteCount_; }

  bool isCanceling() const { return state() == State::kCanceling; }

  // What the task came to; callHandler() has to follow.
  void setOutcome(CurlSessionOutcome outcome);

  // Calls the handler with the outcome. A task that was cancelled before reports that instead.
  void callHandler();

 private:
  ~CurlSessionTask() override;
  CurlSessionOutcome takeOutcome() QVR_REQUIRES(mutex_);
  void wipeBody();

  URLRequest request_;
  CurlSessionByteCount byteCount_;
  mutable Mutex mutex_;
  Ref<CurlSessionCore> core_ QVR_GUARDED_BY(mutex_);
  DataTaskCompletionHandler handler_ QVR_GUARDED_BY(mutex_);
  CurlSessionOutcome outcome_ QVR_GUARDED_BY(mutex_);
  State state_ QVR_GUARDED_BY(mutex_) = State::kSuspended;
  bool isCancelledBeforeResume_ QVR_GUARDED_BY(mutex_) = false;
};

}  // namespace qvr
