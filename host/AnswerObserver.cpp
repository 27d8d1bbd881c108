#include "host/AnswerObserver.h"

#include <utility>

#include "host/IdentityToken.h"
#include "host/RetryAfter.h"
#include "host/Setup.h"

namespace host {
namespace {

ObservedAnswer observed(const qvr::Data& body, const qvr::HTTPURLResponse& response) {
  ObservedAnswer answer;
  answer.statusCode = response.statusCode;
  answer.retryAfterSeconds = retryAfterSeconds(response, now());
  if (const auto token = idTokenInAnswer(body)) {
    answer.accountNames = accountNamesInIDToken(*token);
    answer.subject = subjectInIDToken(*token);
  }
  return answer;
}

}  // namespace

AnswerObserver::AnswerObserver() : session_(urlSession()) {
  if (!session_) return;
  session_->setObserver(
      [note = note_](const qvr::Data& body, const qvr::HTTPURLResponse& response) {
        ObservedAnswer answer = observed(body, response);
        const std::lock_guard lock(note->mutex);
        if (!note->isRead) note->answer = std::move(answer);
      });
}

AnswerObserver::~AnswerObserver() {
  if (session_) session_->setObserver(nullptr);
}

std::shared_ptr<const ObservedAnswer> AnswerObserver::answer() const {
  const std::lock_guard lock(note_->mutex);
  note_->isRead = true;
  return {note_, &note_->answer};
}

}  // namespace host
