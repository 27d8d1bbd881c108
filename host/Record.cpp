#include "host/Record.h"

#include <utility>

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/QVROAuth2TokenManager.h"
#include "host/Secrets.h"
#include "host/Wait.h"

namespace host {
namespace {

struct Result {
  qvr::Ref<QVROAuth2Token> record;
  qvr::ErrorPtr error;
};

// A handler that hands its arguments to `outcome`.
QVROAuth2TokenCompletionHandler into(const Outcome<Result>& outcome) {
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

qvr::ErrorPtr storeOnce(const Account& account, const qvr::Ref<QVROAuth2Token>& record) {
  const Outcome<qvr::ErrorPtr> outcome;
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->setTokenToKeychain(
      record, account.provider, account.username,
      [outcome](qvr::ErrorPtr error) { outcome.deliver(std::move(error)); });
  auto result = outcome.wait(kKeychainDeadlineSeconds);
  return result ? *result : keychainDeadlineError();
}

}  // namespace

qvr::Ref<QVROAuth2Token> readRecord(const Account& account, qvr::ErrorPtr* error) {
  const Outcome<Result> outcome;
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->getTokenFromKeychainForProvider(
      account.provider, account.username, into(outcome));
  auto result = outcome.wait(kKeychainDeadlineSeconds);
  return unpack(result ? std::move(*result) : Result{nullptr, keychainDeadlineError()}, error);
}

// Another process may have added the item since it was looked for: then there is one to replace.
qvr::ErrorPtr storeRecord(const Account& account, const qvr::Ref<QVROAuth2Token>& record) {
  const qvr::ErrorPtr error = storeOnce(account, record);
  const bool isThereNow = error && error->is(qvr::NSOSStatusErrorDomain, qvr::errSecDuplicateItem);
  return isThereNow ? storeOnce(account, record) : error;
}

qvr::ErrorPtr removeRecord(const Account& account) {
  const Outcome<qvr::ErrorPtr> outcome;
  QVROAuth2Keychain::defaultOAuth2Keychain()->removePasswordDataForService(
      account.provider, account.username, nullptr,
      [outcome](bool, qvr::ErrorPtr error) { outcome.deliver(std::move(error)); });
  auto result = outcome.wait(kKeychainDeadlineSeconds);
  return result ? *result : keychainDeadlineError();
}

qvr::Ref<QVROAuth2Token> refreshRecord(const Account& account,
                                       const qvr::Ref<QVROAuth2Token>& record,
                                       qvr::ErrorPtr* error) {
  const Outcome<Result> outcome;
  const auto task = QVROAuth2TokenManager::sharedOAuth2TokenManager()->taskForRefreshingAccessToken(
      record, account.provider, account.username, into(outcome));
  task->resume();
  auto result = outcome.wait(kRequestDeadlineSeconds);
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
