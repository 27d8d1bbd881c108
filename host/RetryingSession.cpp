#include "host/RetryingSession.h"

#include <string.h>

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>

#include "host/Steps.h"

namespace host {
namespace {

// A refresh and the attempts it takes, one after the other. Each attempt is a task of its own, and
// holds this one until its handler has been called.
class RefreshTask final : public qvr::URLSessionDataTask {
 public:
  RefreshTask(qvr::Ref<qvr::URLSession> session, qvr::URLRequest request,
              qvr::DataTaskCompletionHandler handler)
      : session_(std::move(session)), request_(std::move(request)), handler_(std::move(handler)) {}

  void resume() override;
  void cancel() override;
  State state() const override;
  std::optional<std::int64_t> countOfBytesReceived() const override;

 private:
  ~RefreshTask() override { wipeBody(); }
  void attempt();
  void end(std::optional<qvr::Data> data, const qvr::HTTPURLResponse* response,
           qvr::ErrorPtr error);
  bool takeRetry(const qvr::ErrorPtr& error);
  void wipeBody();

  const qvr::Ref<qvr::URLSession> session_;
  qvr::URLRequest request_;  // used by one attempt after the other

  mutable std::mutex mutex_;
  qvr::DataTaskCompletionHandler handler_;
  qvr::Ref<qvr::URLSessionDataTask> current_;  // the last attempt made
  State state_ = State::kSuspended;
  bool isCancelled_ = false;
  bool mayRetry_ = true;
};

void RefreshTask::resume() {
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::kSuspended) return;
    state_ = isCancelled_ ? State::kCanceling : State::kRunning;
  }
  attempt();
}

void RefreshTask::cancel() {
  qvr::Ref<qvr::URLSessionDataTask> current;
  {
    const std::lock_guard lock(mutex_);
    if (state_ == State::kSuspended) isCancelled_ = true;
    if (state_ != State::kRunning) return;
    isCancelled_ = true;
    state_ = State::kCanceling;
    current = current_;
  }
  if (current) current->cancel();
}

qvr::URLSessionDataTask::State RefreshTask::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

// An attempt is repeated only when nothing of its answer had come, so that the last one's count is
// that of all.
std::optional<std::int64_t> RefreshTask::countOfBytesReceived() const {
  const std::lock_guard lock(mutex_);
  return current_ ? current_->countOfBytesReceived() : 0;
}

// An attempt of a task that was cancelled sends nothing: it is made for the error that it ends
// with.
void RefreshTask::attempt() {
  const auto task =
      session_->dataTask(request_, [self = qvr::Ref<RefreshTask>::retain(this)](auto&&... outcome) {
        self->end(std::forward<decltype(outcome)>(outcome)...);
      });
  bool isCancelled = false;
  {
    const std::lock_guard lock(mutex_);
    current_ = task;
    isCancelled = isCancelled_;
  }
  if (isCancelled) task->cancel();
  task->resume();
}

void RefreshTask::end(std::optional<qvr::Data> data, const qvr::HTTPURLResponse* response,
                      qvr::ErrorPtr error) {
  if (takeRetry(error)) {
    attempt();
    return;
  }
  qvr::DataTaskCompletionHandler handler;
  {
    const std::lock_guard lock(mutex_);
    handler = std::exchange(handler_, nullptr);
    state_ = State::kCompleted;
  }
  wipeBody();
  if (handler) handler(std::move(data), response, std::move(error));
}

bool RefreshTask::takeRetry(const qvr::ErrorPtr& error) {
  const bool isLost = error && error->domain() == qvr::NSURLErrorDomain &&
                      error->code() == qvr::NSURLErrorNetworkConnectionLost;
  if (!isLost) return false;
  {
    const std::lock_guard lock(mutex_);
    if (!mayRetry_ || current_->countOfBytesReceived() != 0) return false;
    mayRetry_ = false;
    if (isCancelled_) return true;
  }
  step("the connection was lost before anything of the answer had arrived: asking once more");
  return true;
}

// It holds the refresh token.
void RefreshTask::wipeBody() {
  explicit_bzero(request_.HTTPBody.data(), request_.HTTPBody.size());
}

}  // namespace

RetryingSession::RetryingSession(qvr::Ref<qvr::URLSession> session)
    : session_(std::move(session)) {}

qvr::Ref<qvr::URLSessionDataTask> RetryingSession::dataTask(
    qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) {
  if (!isTokenRefresh(request))
    return session_->dataTask(std::move(request), std::move(completionHandler));
  return qvr::makeRef<RefreshTask>(session_, std::move(request), std::move(completionHandler));
}

bool isTokenRefresh(const qvr::URLRequest& request) {
  if (request.HTTPMethod != "POST") return false;
  std::string_view form(reinterpret_cast<const char*>(request.HTTPBody.data()),
                        request.HTTPBody.size());
  int grantTypes = 0;
  bool isRefresh = false;
  while (!form.empty()) {
    const std::string_view field = form.substr(0, form.find('&'));
    form.remove_prefix(std::min(form.size(), field.size() + 1));
    if (!field.starts_with("grant_type=")) continue;
    ++grantTypes;
    isRefresh = field == "grant_type=refresh_token";
  }
  return grantTypes == 1 && isRefresh;
}

}  // namespace host
