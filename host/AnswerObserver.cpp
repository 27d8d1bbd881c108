#include "host/AnswerObserver.h"

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
      [answer = answer_](const qvr::Data& body, const qvr::HTTPURLResponse& response) {
        *answer = observed(body, response);
      });
}

AnswerObserver::~AnswerObserver() {
  if (session_) session_->setObserver(nullptr);
}

}  // namespace host
