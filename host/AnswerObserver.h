// What the command wants to know of an answer of the token endpoint, beside what the library's
// response keeps of it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
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
//
// Thread rule: one thread makes and asks it.
class AnswerObserver {
 public:
  AnswerObserver();
  ~AnswerObserver();
  AnswerObserver(const AnswerObserver&) = delete;
  AnswerObserver& operator=(const AnswerObserver&) = delete;

  // What has been noted. From the first call on it no longer changes: an answer that comes after
  // the deadline, on another thread, is not noted.
  std::shared_ptr<const ObservedAnswer> answer() const;

 private:
  struct Note {
    std::mutex mutex;
    bool isRead = false;
    ObservedAnswer answer;
  };

  const qvr::Ref<ObservedSession> session_;
  const std::shared_ptr<Note> note_ = std::make_shared<Note>();
};

}  // namespace host
