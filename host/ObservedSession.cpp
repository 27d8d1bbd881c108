#include "host/ObservedSession.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "host/Secrets.h"

namespace host {
namespace {

// The library makes the verifier itself and shows it to nobody but the server, which may echo it in
// an error's text. Its value in the form is percent-decoded by way of a path, which a URL reports
// decoded; no character of a verifier would end the path early (RFC 7636 section 4.1).
void keepVerifierSecret(const qvr::Data& form) {
  constexpr std::string_view kField = "code_verifier=";
  const auto start = std::search(form.begin(), form.end(), kField.begin(), kField.end());
  if (start == form.end()) return;
  const auto value = start + static_cast<std::ptrdiff_t>(kField.size());
  const std::string path = "/" + std::string(value, std::find(value, form.end(), '&'));
  const auto url = qvr::URL::URLWithString("x:" + path);
  keepSecret((url ? url->path() : std::nullopt).value_or(path).substr(1));
}

}  // namespace

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
  keepVerifierSecret(request.HTTPBody);
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
