#include "host/ObservedSession.h"

#include <utility>

namespace host {

ObservedSession::ObservedSession(qvr::Ref<qvr::URLSession> session)
    : session_(std::move(session)) {}

void ObservedSession::setObserver(Observer observer) {
  const std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

// The observer is called without the lock, and may set another one.
void ObservedSession::observe(const qvr::Data& body, const qvr::HTTPURLResponse& response) const {
  Observer observer;
  {
    const std::lock_guard lock(mutex_);
    observer = observer_;
  }
  if (observer) observer(body, response);
}

qvr::Ref<qvr::URLSessionDataTask> ObservedSession::dataTask(
    qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) {
  return session_->dataTask(
      std::move(request),
      [self = qvr::Ref<ObservedSession>::retain(this), handler = std::move(completionHandler)](
          std::optional<qvr::Data> data, const qvr::HTTPURLResponse* response,
          qvr::ErrorPtr error) {
        if (data && response != nullptr) self->observe(*data, *response);
        handler(std::move(data), response, std::move(error));
      });
}

}  // namespace host
