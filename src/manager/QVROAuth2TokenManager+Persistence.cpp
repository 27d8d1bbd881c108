// Records between memory, keychain and token endpoint.

#include "QVROAuth2Client/QVRGoogleOAuth2PublicClient.h"
#include "QVROAuth2Client/QVRMicrosoftOAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/QVROAuth2TokenManager.h"
#include "QVROAuth2Client/platform/Exception.h"
#include "src/manager/RefreshedToken.h"
#include "src/manager/TokenArchive.h"

namespace {

constexpr std::string_view kSetToken =
    "-[QVROAuth2TokenManager setTokenToKeychain:forProvider:username:completionHandler:]";

constexpr std::string_view kTaskForRefreshing =
    "-[QVROAuth2TokenManager "
    "taskForRefreshingAccessToken:withProvider:username:completionHandler:]";

// A client as the provider ships it, told only whose account it is for.
template <class Client>
qvr::Ref<QVROAuth2PublicClient> clientFor(qvr::TextView username) {
  const qvr::Ref<Client> client = Client::init();
  client->setLoginHint(username);
  return client;
}

qvr::Ref<QVROAuth2PublicClient> clientForProvider(qvr::TextView provider, qvr::TextView username) {
  if (provider.view() == QVROAuth2ProviderGoogle) {
    return clientFor<QVRGoogleOAuth2PublicClient>(username);
  }
  if (provider.view() == QVROAuth2ProviderMicrosoft) {
    return clientFor<QVRMicrosoftOAuth2PublicClient>(username);
  }
  throw qvr::InternalInconsistencyException("*** " + std::string(kTaskForRefreshing) +
                                            ": invalid provider name \"" +
                                            provider.text().value_or("(null)") + "\"");
}

}  // namespace

void QVROAuth2TokenManager::getTokenFromKeychainForProvider(
    qvr::TextView provider, qvr::TextView username,
    QVROAuth2TokenCompletionHandler completionHandler) {
  QVROAuth2Keychain::defaultOAuth2Keychain()->getPasswordDataForService(
      provider, username, nullptr,
      [handler = std::move(completionHandler)](const std::optional<qvr::Data>& data,
                                               qvr::ErrorPtr error) {
        if (!data) return handler(nullptr, std::move(error));
        qvr::ErrorPtr decodingError;
        qvr::Ref<QVROAuth2Token> token = unarchivedToken(*data, &decodingError);
        handler(std::move(token), std::move(decodingError));
      });
}

void QVROAuth2TokenManager::setTokenToKeychain(const qvr::Ref<QVROAuth2Token>& token,
                                               qvr::TextView provider, qvr::TextView username,
                                               QVROAuth2StoreCompletionHandler completionHandler) {
  if (!token) {
    throw qvr::InvalidArgumentException("*** " + std::string(kSetToken) + ": nil token");
  }
  qvr::ErrorPtr archivingError;
  std::optional<qvr::Data> data = archivedToken(*token, &archivingError);
  if (!data) return completionHandler(std::move(archivingError));
  QVROAuth2Keychain::defaultOAuth2Keychain()->setPasswordData(
      *std::move(data), provider, username, nullptr,
      [handler = std::move(completionHandler)](bool, qvr::ErrorPtr error) {
        handler(std::move(error));
      });
}

qvr::Ref<qvr::URLSessionDataTask> QVROAuth2TokenManager::taskForRefreshingAccessToken(
    const qvr::Ref<QVROAuth2Token>& token, qvr::TextView provider, qvr::TextView username,
    QVROAuth2TokenCompletionHandler completionHandler) {
  if (!token || !token->refreshToken()) {
    throw qvr::InvalidArgumentException("*** " + std::string(kTaskForRefreshing) +
                                        ": nil token.refreshToken");
  }
  const qvr::Ref<QVROAuth2PublicClient> client = clientForProvider(provider, username);
  return client->taskForRefreshingAccessTokenWithRefreshToken(
      token->refreshToken(),
      [handler = std::move(completionHandler), oldToken = token](
          const qvr::Ref<QVROAuth2AccessTokenResponse>& response, const qvr::ErrorPtr& error) {
        if (!response) return handler(nullptr, error);
        qvr::ErrorPtr missing;
        qvr::Ref<QVROAuth2Token> newToken = refreshedToken(*response, *oldToken, &missing);
        handler(std::move(newToken), std::move(missing));
      });
}
