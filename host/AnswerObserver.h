// What the command wants to know of an answer of the token endpoint, beside what the library's
// response keeps of it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/ObservedSession.h"

namespace host {

struct ObservedAnswer {
  std::int64_t statusCode = 0;  // 0 when there was no answer
  std::optional<double> retryAfterSeconds{};

  // Of the ID token, if there is one (see IdentityToken.h).
  std::vector<std::string> accountNames{};
  std::optional<std::string> subject{};
};

// While it lives, notes the last answer of the session that was installed. Answers are observed and
// handled on one queue, so what was noted is there, complete, when the handler of the same answer
// runs, and for whom that handler tells.
class AnswerObserver {
 public:
  AnswerObserver();
  ~AnswerObserver();
  AnswerObserver(const AnswerObserver&) = delete;
  AnswerObserver& operator=(const AnswerObserver&) = delete;

  // To be read once the handler has been called; then it no longer changes.
  std::shared_ptr<const ObservedAnswer> answer() const { return answer_; }

 private:
  const qvr::Ref<ObservedSession> session_;
  const std::shared_ptr<ObservedAnswer> answer_ = std::make_shared<ObservedAnswer>();
};

}  // namespace host
