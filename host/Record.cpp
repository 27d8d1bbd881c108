#include "host/Record.h"

#include <string>
#include <utility>

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/QVROAuth2TokenManager.h"
#include "host/DateText.h"
#include "host/Deadline.h"
#include "host/Messages.h"
#include "host/NarratedText.h"
#include "host/PendingRequest.h"
#include "host/RecordFacts.h"
#include "host/Secrets.h"
#include "host/SignalledOutcome.h"
#include "host/Signals.h"
#include "host/Steps.h"
#include "host/Wait.h"

namespace host {
namespace {

// For a token that came, or was revoked, when the command's time was nearly over: the stored one
// may be worth nothing any more.
constexpr double kStoringSeconds = 5;

struct Result {
  qvr::Ref<QVROAuth2Token> record;
  qvr::ErrorPtr error;
};

// A handler that hands its arguments to `outcome`.
template <class AnyOutcome>
QVROAuth2TokenCompletionHandler into(const AnyOutcome& outcome) {
  return [outcome](qvr::Ref<QVROAuth2Token> record, qvr::ErrorPtr error) {
    outcome.deliver({std::move(record), std::move(error)});
  };
}

// A keychain that does not answer is one that is not available.
qvr::ErrorPtr keychainDeadlineError() {
  return qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain, qvr::errSecNotAvailable);
}

qvr::ErrorPtr requestDeadlineError() {
  return qvr::Error::errorWithDomain(qvr::NSURLErrorDomain, qvr::NSURLErrorTimedOut);
}

qvr::Ref<QVROAuth2Token> unpack(Result result, qvr::ErrorPtr* error) {
  if (!result.record) {
    *error = std::move(result.error);
    return nullptr;
  }
  keepSecret(result.record->accessToken().value_or(""));
  keepSecret(result.record->refreshToken().value_or(""));
  return std::move(result.record);
}

void showFailure(const std::string& what, const qvr::ErrorPtr& error) {
  if (error && stepsAreShown()) step(what + " failed: " + narratedValue(error->description()));
}

// The outcome of an operation on the keychain, which `what` names.
qvr::ErrorPtr finish(const std::string& what, const Outcome<qvr::ErrorPtr>& outcome) {
  auto result = outcome.wait(kKeychainDeadlineSeconds);
  qvr::ErrorPtr error = result ? std::move(*result) : keychainDeadlineError();
  showFailure(what, error);
  return error;
}

void startStoring(const Account& account, const qvr::Ref<QVROAuth2Token>& record,
                  const Outcome<qvr::ErrorPtr>& outcome) {
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->setTokenToKeychain(
      record, account.provider, account.username,
      [outcome](qvr::ErrorPtr error) { outcome.deliver(std::move(error)); });
}

qvr::ErrorPtr storeOnce(const Account& account, const qvr::Ref<QVROAuth2Token>& record) {
  const Outcome<qvr::ErrorPtr> outcome;
  startStoring(account, record, outcome);
  return finish("storing the record of " + nameOf(account), outcome);
}

// What is known of a record, without its tokens.
std::string summary(const QVROAuth2Token& record) {
  const auto lengthOrNone = [](const qvr::Text& token) {
    return token ? lengthOf(*token) : std::string("none");
  };
  const auto expiry = expiryDate(record);
  return "access token " + lengthOrNone(record.accessToken()) + ", refresh token " +
         lengthOrNone(record.refreshToken()) + ", expires " + (expiry ? rfc3339(*expiry) : "never");
}

}  // namespace

qvr::Ref<QVROAuth2Token> readRecord(const Account& account, qvr::ErrorPtr* error) {
  const Outcome<Result> outcome;
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->getTokenFromKeychainForProvider(
      account.provider, account.username, into(outcome));
  const auto result = [&outcome] {
    const TerminationAllowed allowed;
    return outcome.wait(kKeychainDeadlineSeconds);
  }();
  auto record = unpack(result ? *result : Result{nullptr, keychainDeadlineError()}, error);
  showFailure("reading the record of " + nameOf(account), record ? nullptr : *error);
  if (record && stepsAreShown()) step("the record: " + summary(*record));
  return record;
}

// Another process may have added the item since it was looked for: then there is one to replace.
qvr::ErrorPtr storeRecord(const Account& account, const qvr::Ref<QVROAuth2Token>& record) {
  allowAtLeast(kStoringSeconds);
  const qvr::ErrorPtr error = storeOnce(account, record);
  const bool isThereNow = error && error->is(qvr::NSOSStatusErrorDomain, qvr::errSecDuplicateItem);
  return isThereNow ? storeOnce(account, record) : error;
}

qvr::ErrorPtr rewriteRecord(const Account& account, const qvr::Ref<QVROAuth2Token>& record) {
  const Outcome<qvr::ErrorPtr> outcome;
  startStoring(account, record, outcome);
  const TerminationAllowed allowed;
  return finish("writing the record of " + nameOf(account) + " back", outcome);
}

qvr::ErrorPtr removeRecord(const Account& account) {
  allowAtLeast(kStoringSeconds);
  const Outcome<qvr::ErrorPtr> outcome;
  QVROAuth2Keychain::defaultOAuth2Keychain()->removePasswordDataForService(
      account.provider, account.username, nullptr,
      [outcome](bool, qvr::ErrorPtr error) { outcome.deliver(std::move(error)); });
  return finish("removing the record of " + nameOf(account), outcome);
}

qvr::Ref<QVROAuth2Token> refreshRecord(const Account& account,
                                       const qvr::Ref<QVROAuth2Token>& record,
                                       qvr::ErrorPtr* error) {
  const SignalledOutcome<Result> outcome;
  const auto task = QVROAuth2TokenManager::sharedOAuth2TokenManager()->taskForRefreshingAccessToken(
      record, account.provider, account.username, into(outcome));
  task->resume();
  auto result = answerOfPendingRequest(outcome, kRequestDeadlineSeconds);
  if (!result) task->cancel();
  return unpack(result ? std::move(*result) : Result{nullptr, requestDeadlineError()}, error);
}

std::string_view providerOfService(std::string_view service) {
  for (const std::string_view provider : {QVROAuth2ProviderGoogle, QVROAuth2ProviderMicrosoft}) {
    if (service == QVROAuth2Keychain::serviceNameForService(provider)) return provider;
  }
  return {};
}

bool canBeSent(const qvr::Text& token) {
  return token && !token->empty() && token->find(' ') == std::string::npos;
}

}  // namespace host
