// The provider's part of a sign-in: the code is exchanged, and the answer becomes a record.
#include <utility>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/AnswerObserver.h"
#include "host/Messages.h"
#include "host/Scopes.h"
#include "host/Secrets.h"
#include "host/Setup.h"
#include "host/SignIn.h"
#include "host/SignalledOutcome.h"
#include "host/Steps.h"

namespace host {

namespace {

struct Exchanged {
  qvr::Ref<QVROAuth2AccessTokenResponse> response;  // null when there is an error
  qvr::ErrorPtr error;
};

std::variant<TokenAnswer, Failure> answerFrom(Exchanged exchanged, const ObservedAnswer& observed,
                                              const Account& account) {
  if (!exchanged.response) return failureForAnswer(exchanged.error, account, observed);
  return TokenAnswer{std::move(exchanged.response), observed.accountNames, observed.subject};
}

std::string minutes(double seconds) {
  const auto rounded = static_cast<long long>((seconds + 59) / 60);
  return rounded == 1 ? "one minute" : std::to_string(rounded) + " minutes";
}

// When the record stops being of use, as far as one knows.
std::string lifetime(const QVROAuth2Token& record) {
  constexpr double kDay = 24 * 60 * 60;
  const double seconds = record.expiresIn().value_or(0);
  return seconds > 0 && seconds < kDay ? "in " + minutes(seconds) : "when the token expires";
}

std::string howToGetARefreshToken(const Account& account) {
  if (account.provider == QVROAuth2ProviderGoogle)
    return "Remove the app's access in the Google account's security settings and sign in again: "
           "Google sends a refresh token with the first consent.";
  return "Sign in again with \"offline_access\" in the scope.";
}

}  // namespace

std::variant<TokenAnswer, Failure> exchangeCode(const QVROAuth2PublicClient& client,
                                                const std::string& code, const Account& account,
                                                int signals) {
  const SignalledOutcome<Exchanged> outcome;
  const AnswerObserver observer;
  const auto task = client.taskForRequestingAccessTokenWithAuthorizationCode(
      code, [outcome](qvr::Ref<QVROAuth2AccessTokenResponse> response, qvr::ErrorPtr error) {
        outcome.deliver({std::move(response), std::move(error)});
      });
  step("exchanging the code (" + lengthOf(code) + ") for a token");
  task->resume();
  const Event event = outcome.wait(signals, kRequestDeadlineSeconds);
  if (event == Event::kAnswer)
    return answerFrom(outcome.take().value(), *observer.answer(), account);
  task->cancel();
  if (event == Event::kSignal)
    return Failure{kFailed, "The sign-in was cancelled: nothing was stored."};
  return Failure{kTryAgainLater,
                 account.provider + " did not answer in time: sign in again later."};
}

std::variant<qvr::Ref<QVROAuth2Token>, Failure> recordFromAnswer(
    const QVROAuth2AccessTokenResponse& answer, const std::string& scope, const Account& account,
    qvr::Date now) {
  const qvr::Text accessToken = answer.accessToken().text();
  const qvr::Text tokenType = answer.tokenType().text();
  const qvr::Text refreshToken = answer.refreshToken().text();
  keepSecret(accessToken.value_or(""));
  keepSecret(refreshToken.value_or(""));
  if (!accessToken || accessToken->empty() || !tokenType)
    return Failure{kFailed, "The answer of " + account.provider + " has no " +
                                (tokenType ? "access token" : "token type") +
                                ", so nothing was stored: sign in again."};
  return QVROAuth2Token::initWithAccessToken(
      *accessToken, *tokenType, answer.expiresIn().numberValue(), refreshToken,
      splitScope(answer.scope().text().value_or(scope)), now);
}

std::vector<std::string> warningsAboutRecord(const QVROAuth2Token& record, const std::string& scope,
                                             const Account& account) {
  std::vector<std::string> warnings;
  if (record.refreshToken().value_or("").empty())
    warnings.push_back("Warning: " + account.provider +
                       " sent no refresh token, so this sign-in cannot be renewed and ends " +
                       lifetime(record) + ". " + howToGetARefreshToken(account));
  std::string missing;
  for (const std::string& each :
       missingScopes(splitScope(scope), record.grantedScopes().value_or(qvr::TextSet())))
    missing += " " + each;
  if (!missing.empty())
    warnings.push_back("Warning: not everything that was asked for was granted; missing:" +
                       missing + ". Sign in again and tick every box on the consent page.");
  return warnings;
}

}  // namespace host
