// The steps of a request to the token manager are gone through one by one, so that what was checked
// is what is sent: between the check and a second read of its own, the manager could meet another
// record, one that it raises on.
#include "host/RecordRefresh.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "host/AccountLock.h"
#include "host/AccountSubject.h"
#include "host/AnswerObserver.h"
#include "host/Messages.h"
#include "host/Record.h"
#include "host/RecordFacts.h"
#include "host/RecordProblems.h"
#include "host/Setup.h"
#include "host/Steps.h"

namespace host {
namespace {

using Record = qvr::Ref<QVROAuth2Token>;

// A record from farther ahead than this was made before the clock was set back: how long its token
// is still valid cannot be told.
constexpr double kClockToleranceSeconds = 60;

// A refresh that is refused is tried once more with what another process has stored meanwhile.
constexpr int kMaximumRefreshes = 2;

double secondsSinceCreation(const QVROAuth2Token& record) {
  const double created = record.creationDate().value_or(qvr::Date{}).timeIntervalSinceReferenceDate;
  return now().timeIntervalSinceReferenceDate - created;
}

// Due whatever was asked for.
bool isDueByItself(const QVROAuth2Token& record) {
  if (record.shouldRefreshToken()) return true;
  const bool isFromTheFuture = secondsSinceCreation(record) < -kClockToleranceSeconds;
  return isFromTheFuture && record.refreshToken() && record.expiresIn();
}

bool isSame(const QVROAuth2Token& one, const QVROAuth2Token& other) {
  return one.accessToken() == other.accessToken() && one.refreshToken() == other.refreshToken() &&
         one.creationDate() == other.creationDate();
}

// What another process has obtained is served even if more was asked for than it holds: this
// process would get no more. That goes for a token of a very short life, too, if it is from after
// `begin`.
bool isGoodEnough(const QVROAuth2Token& record, qvr::Date begin) {
  const qvr::Date created = record.creationDate().value_or(qvr::Date{});
  const bool isRecent =
      created.timeIntervalSinceReferenceDate >= begin.timeIntervalSinceReferenceDate;
  return !isDueByItself(record) || (isRecent && !hasExpired(record, now()));
}

Failure noRefreshWasSent(Failure failure) {
  failure.sentence = "No refresh was sent. " + failure.sentence;
  return failure;
}

// Writes the record back as it is. A store that does not take it would not take the new one either,
// and a rotated token that cannot be stored is lost.
std::optional<Failure> storeProblem(const Account& account, const Record& record) {
  const qvr::ErrorPtr error = rewriteRecord(account, record);
  if (!error) return std::nullopt;
  Failure failure = failureForError(error, account);
  failure.sentence =
      "No refresh was sent, since the new token could not be stored. " + failure.sentence;
  return failure;
}

Failure othersToken(const Account& account, const std::vector<std::string>& names) {
  return {kFailed, account.provider + " answered with a token of another account" +
                       (names.empty() ? "" : ", " + names.front() + ",") + " than the one of " +
                       nameOf(account) +
                       ". It was not stored, and what is stored is unchanged. If that happens "
                       "again, sign in again: " +
                       signInCommand(account)};
}

// Replaces the record of an account by a refreshed one, under the account's lock.
class Refresh {
 public:
  Refresh(const Configuration& configuration, const Account& account)
      : configuration_(configuration), account_(account) {}

  // Sends the refresh token of the record, and stores what comes back. *wasRefused tells a refusal
  // of the refresh token.
  RecordOrFailure run(const Record& record, bool* wasRefused) const {
    if (auto failure = refreshProblem(configuration_, account_, *record)) return *failure;
    if (auto failure = storeProblem(account_, record)) return *failure;
    const AnswerObserver observer;
    qvr::ErrorPtr error;
    const Record refreshed = refreshRecord(account_, record, &error);
    const ObservedAnswer& answer = *observer.answer();
    if (!refreshed) {
      *wasRefused = error->is(QVROAuth2ErrorDomain, QVROAuth2ErrorInvalidGrant);
      return failureForAnswer(error, account_, answer);
    }
    return stored(refreshed, answer);
  }

 private:
  RecordOrFailure stored(const Record& refreshed, const ObservedAnswer& answer) const {
    const std::string& bundle = configuration_.bundleIdentifier;
    if (answer.subject && isAnotherSubject(bundle, account_, *answer.subject)) {
      return othersToken(account_, answer.accountNames);
    }
    const qvr::ErrorPtr error = storeRecord(account_, refreshed);
    if (!error) return refreshed;
    Failure failure = failureForError(error, account_);
    failure.sentence = "The refreshed token could not be stored. " + failure.sentence +
                       " If the next refresh is refused, sign in again.";
    return failure;
  }

  const Configuration& configuration_;
  const Account& account_;
};

}  // namespace

bool isDue(const QVROAuth2Token& record, const TokenOptions& options) {
  if (options.forceRefresh || isDueByItself(record)) return true;
  return record.refreshToken() && record.expiresIn() &&
         *record.expiresIn() - secondsSinceCreation(record) <= options.minimumSeconds;
}

RecordOrFailure refreshedRecord(const Configuration& configuration, const TokenOptions& options,
                                const Record& record) {
  const Account& account = options.account;
  if (auto failure = refreshProblem(configuration, account, *record)) return *failure;
  const qvr::Date begin = now();
  auto lock = AccountLock::acquire(account);
  if (auto* failure = std::get_if<Failure>(&lock)) return noRefreshWasSent(*failure);
  const Refresh refresh(configuration, account);
  std::optional<RecordOrFailure> refusal;
  Record last = record;
  for (int refreshes = 0;; ++refreshes) {
    qvr::ErrorPtr error;
    const Record current = readRecord(account, &error);
    if (!current) return failureForError(error, account);
    const bool isOthers = !isSame(*current, *last);
    if (isOthers && isGoodEnough(*current, begin)) {
      step("another process has refreshed the token");
      return current;
    }
    if (refusal && (!isOthers || refreshes == kMaximumRefreshes)) return *refusal;
    bool wasRefused = false;
    RecordOrFailure result = refresh.run(current, &wasRefused);
    if (!wasRefused) return result;
    refusal = std::move(result);
    last = current;
  }
}

}  // namespace host
