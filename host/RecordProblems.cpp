#include "host/RecordProblems.h"

#include <algorithm>
#include <string>

#include "host/Messages.h"
#include "host/Record.h"
#include "host/RecordFacts.h"

namespace host {
namespace {

// The visible characters of RFC 6749 appendix A.12, so that the token stays one line.
bool isPrintableToken(const std::string& token) {
  return std::all_of(token.begin(), token.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
}

}  // namespace

std::optional<Failure> refreshProblem(const Configuration& configuration, const Account& account,
                                      const QVROAuth2Token& record) {
  if (!hasRefreshToken(record)) {
    return signInNeeded(account, "No refresh token is stored for " + nameOf(account) + ".");
  }
  if (!canBeSent(record.refreshToken())) {
    return signInNeeded(account, "The refresh token stored for " + nameOf(account) +
                                     " holds a space and cannot be sent.");
  }
  return registrationProblem(configuration, account.provider);
}

std::optional<Failure> expiryProblem(const Account& account, const QVROAuth2Token& record,
                                     qvr::Date now) {
  if (!hasExpired(record, now)) return std::nullopt;
  return signInNeeded(
      account, "The token of " + nameOf(account) + " has expired, and there is no refresh token.");
}

std::optional<Failure> printingProblem(const Account& account, const QVROAuth2Token& record) {
  const std::string token = record.accessToken().value_or("");
  if (token.empty()) {
    return signInNeeded(account, "No access token is stored for " + nameOf(account) + ".");
  }
  if (isPrintableToken(token)) return std::nullopt;
  return signInNeeded(account, "The access token of " + nameOf(account) +
                                   " holds a character that is not allowed in a token, and is not "
                                   "printed.");
}

}  // namespace host
