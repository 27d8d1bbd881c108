// qvr-oauth2 token: the access token of an account, refreshed in time, and nothing else on standard
// output.
//
// A record that is due goes through the steps of a request to the token manager one by one, so that
// what was checked is what is sent: between the check and a second read of its own, the manager
// could meet another record, one that it raises on.
#include <algorithm>
#include <string>

#include "host/Command.h"
#include "host/Console.h"
#include "host/Messages.h"
#include "host/Record.h"
#include "host/Setup.h"

namespace host {
namespace {

using Record = qvr::Ref<QVROAuth2Token>;

std::string nameOf(const Account& account) {
  return account.username + " at " + account.provider;
}

Failure signInNeeded(const Account& account, const std::string& reason) {
  return {kSignInNeeded, reason + " Sign in again: " + signInCommand(account)};
}

// The visible characters of RFC 6749 appendix A.12, so that the token stays one line.
bool isPrintableToken(const std::string& token) {
  return !token.empty() &&
         std::all_of(token.begin(), token.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
}

// The library serves a record without a refresh token however old it is; the server would refuse
// such a token, so the command does.
bool hasExpired(const QVROAuth2Token& record) {
  if (!record.expiresIn()) return false;
  const double created = record.creationDate().value_or(qvr::Date{}).timeIntervalSinceReferenceDate;
  return created + *record.expiresIn() <= now().timeIntervalSinceReferenceDate;
}

// Why a stored token cannot be refreshed.
std::optional<Failure> refreshProblem(const Configuration& configuration, const Account& account,
                                      const QVROAuth2Token& record) {
  if (!record.refreshToken() || record.refreshToken()->empty()) {
    return signInNeeded(account, "No refresh token is stored for " + nameOf(account) + ".");
  }
  if (!canBeSent(record.refreshToken())) {
    return signInNeeded(account, "The refresh token stored for " + nameOf(account) +
                                     " holds a space and cannot be sent.");
  }
  return registrationProblem(configuration, account.provider);
}

// Writes the record back as it is. A store that does not take it would not take the new one either,
// and a rotated token that cannot be stored is lost.
std::optional<Failure> storeProblem(const Account& account, const Record& record) {
  const qvr::ErrorPtr error = storeRecord(account, record);
  if (!error) return std::nullopt;
  Failure failure = failureForError(error, account);
  failure.sentence =
      "No refresh was sent, since the new token could not be stored. " + failure.sentence;
  return failure;
}

// Replaces *record by a refreshed one that has been stored.
std::optional<Failure> refresh(const Configuration& configuration, const Account& account,
                               Record* record) {
  if (auto failure = refreshProblem(configuration, account, **record)) return failure;
  if (auto failure = storeProblem(account, *record)) return failure;
  qvr::ErrorPtr error;
  const Record refreshed = refreshRecord(account, *record, &error);
  if (!refreshed) return failureForError(error, account);
  error = storeRecord(account, refreshed);
  if (error) {
    Failure failure = failureForError(error, account);
    failure.sentence = "The refreshed token could not be stored. " + failure.sentence +
                       " If the next refresh is refused, sign in again.";
    return failure;
  }
  *record = refreshed;
  return std::nullopt;
}

int print(const Account& account, const QVROAuth2Token& record) {
  if (!record.accessToken() || record.accessToken()->empty()) {
    return report(signInNeeded(account, "No access token is stored for " + nameOf(account) + "."));
  }
  if (!isPrintableToken(*record.accessToken())) {
    return report(signInNeeded(account, "The access token of " + nameOf(account) +
                                            " holds a character that is not allowed in a token, "
                                            "and is not printed."));
  }
  return writeOut(*record.accessToken() + "\n") ? kDone : report(cannotWriteOutput());
}

}  // namespace

int token(const Configuration& configuration, const TokenOptions& options) {
  const Account& account = options.account;
  qvr::ErrorPtr error;
  Record record = readRecord(account, &error);
  if (!record) return report(failureForError(error, account));
  if (options.forceRefresh || record->shouldRefreshToken()) {
    if (auto failure = refresh(configuration, account, &record)) return report(*failure);
  } else if (hasExpired(*record)) {
    return report(signInNeeded(account, "The token of " + nameOf(account) +
                                            " has expired, and there is no refresh token."));
  }
  return print(account, *record);
}

}  // namespace host
