#include "src/ports/CurlSessionTask.h"

#include <utility>

#include "src/platform/Crypto.h"
#include "src/platform/URLErrors.h"
#include "src/ports/CurlSessionCore.h"

namespace qvr {

CurlSessionTask::CurlSessionTask(Ref<CurlSessionCore> core, URLRequest request,
                                 DataTaskCompletionHandler handler)
    : request_(std::move(request)), core_(std::move(core)), handler_(std::move(handler)) {}

CurlSessionTask::~CurlSessionTask() {
  wipeBody();
}

void CurlSessionTask::resume() {
  Ref<CurlSessionCore> core;
  {
    MutexLock lock(mutex_);
    if (state_ != State::kSuspended) return;
    state_ = isCancelledBeforeResume_ ? State::kCanceling : State::kRunning;
    core = core_;
  }
  core->start(Ref<CurlSessionTask>::retain(this));
}

void CurlSessionTask::cancel() {
  Ref<CurlSessionCore> core;
  {
    MutexLock lock(mutex_);
    if (state_ == State::kSuspended) isCancelledBeforeResume_ = true;
    if (state_ != State::kRunning) return;
    state_ = State::kCanceling;
    core = core_;
  }
  core->wake();
}

URLSessionDataTask::State CurlSessionTask::state() const {
  MutexLock lock(mutex_);
  return state_;
}

void CurlSessionTask::setOutcome(CurlSessionOutcome outcome) {
  MutexLock lock(mutex_);
  outcome_ = std::move(outcome);
}

void CurlSessionTask::callHandler() {
  Ref<CurlSessionCore> core;  // goes last: the session's thread may end with it
  DataTaskCompletionHandler handler;
  CurlSessionOutcome outcome;
  {
    MutexLock lock(mutex_);
    core = std::exchange(core_, nullptr);
    handler = std::exchange(handler_, nullptr);
    outcome = takeOutcome();
    state_ = State::kCompleted;
  }
  wipeBody();
  if (!handler) return;
  handler(std::move(outcome.data), outcome.error ? nullptr : &outcome.response, outcome.error);
}

CurlSessionOutcome CurlSessionTask::takeOutcome() {
  if (state_ != State::kCanceling) return std::exchange(outcome_, {});
  outcome_ = {};
  return {std::nullopt, {}, makeURLError(NSURLErrorCancelled, request_.url)};
}

// The body of a token request is a secret.
void CurlSessionTask::wipeBody() {
  wipe(request_.HTTPBody.data(), request_.HTTPBody.size());
}

}  // namespace qvr
