// The token manager: hands out a usable access token for a provider and user name, refreshed in
// time, with concurrent requests sharing one refresh.
//
// It works from what is stored, and never signs in: put the first token there with
// setTokenToKeychain(). Provider names are QVROAuth2ProviderGoogle and QVROAuth2ProviderMicrosoft,
// compared exactly; they are checked only when a refresh is due.
//
// WARNING: requests are coalesced by user name alone. One user name used under both providers
// shares results: a request for one can be answered by the result of a request for the other. Give
// each account its own user name if a user may hold both.
//
// An absent provider or user name is a programming error: it raises InvalidArgumentException, for
// the user name on the keychain's work queue, which ends the process.
//
// Thread rule: requests may come from any thread. Handlers run on background queues, with no lock
// held: on the keychain's delegate queue, or, after a failed refresh, on the session's callback
// queue. Nothing is moved to the main thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URLSession.h"

// Called once, with (token, null) or (null, error).
using QVROAuth2TokenCompletionHandler =
    std::function<void(qvr::Ref<QVROAuth2Token> token, qvr::ErrorPtr error)>;

// Called once with whether a token is stored.
using QVROAuth2HasTokenCompletionHandler = std::function<void(bool hasToken)>;

// Called once; a null error means stored.
using QVROAuth2StoreCompletionHandler = std::function<void(qvr::ErrorPtr error)>;

class QVR_EXPORT QVROAuth2TokenManager final : public qvr::Object {
 public:
  // sharedOAuth2TokenManager
  // The one instance; it lives as long as the process. Raises InternalInconsistencyException when
  // the host chose no keychain.
  static QVROAuth2TokenManager* sharedOAuth2TokenManager();

  // allocWithZone:
  // Always null: the shared instance is the only one.
  static QVROAuth2TokenManager* allocWithZone(void* zone);

  // The shared instance is immortal: these return it unchanged, release does nothing, and the count
  // has all bits set.
  QVROAuth2TokenManager* copyWithZone(void* zone) noexcept;
  QVROAuth2TokenManager* retain() noexcept;
  void release() noexcept;
  QVROAuth2TokenManager* autorelease() noexcept;

  // hasAccessTokenForProvider:username:completionHandler:
  // Tells whether a readable token is stored, due or not. Errors other than "not found" are logged,
  // and answered with false.
  void hasAccessTokenForProvider(qvr::TextView provider, qvr::TextView username,
                                 QVROAuth2HasTokenCompletionHandler completionHandler);

  // requestAccessTokenForProvider:username:completionHandler:
  // Answers with the stored token, or, when it is due, with a refreshed one that has been stored.
  // The handlers of one user name are answered together, oldest first. Errors: those of the
  // keychain read (-25300 when nothing is stored) and of the archive, of the refresh (see
  // QVROAuth2PublicClient.h; QVROAuth2ErrorDomain 0 for an answer without "access_token" or
  // "token_type"), and of the store; a token that could not be stored is not delivered. When the
  // token is due, an unknown provider raises on the delegate queue, and so does a stored refresh
  // token with a space and more text after it; there that ends the process.
  void requestAccessTokenForProvider(qvr::TextView provider, qvr::TextView username,
                                     QVROAuth2TokenCompletionHandler completionHandler);

  // cancelRequestForProvider:username:
  // Cancels the refresh that is running for the user name; its handlers get NSURLErrorDomain -999.
  // Does nothing when none is running.
  void cancelRequestForProvider(qvr::TextView provider, qvr::TextView username);

  // getTokenFromKeychainForProvider:username:completionHandler:
  // Reads the stored token. The handler runs on the keychain's delegate queue. Errors: the
  // keychain's, and NSCocoaErrorDomain 4864 (unreadable or foreign archive) or 4865 (no root
  // object).
  void getTokenFromKeychainForProvider(qvr::TextView provider, qvr::TextView username,
                                       QVROAuth2TokenCompletionHandler completionHandler);

  // setTokenToKeychain:forProvider:username:completionHandler:
  // Stores a token, replacing what was there; an absent one raises InvalidArgumentException. The
  // handler runs on the keychain's delegate queue, or, when the token cannot be archived
  // (NSCocoaErrorDomain 4866; nothing is written), at once on the calling thread.
  void setTokenToKeychain(const qvr::Ref<QVROAuth2Token>& token, qvr::TextView provider,
                          qvr::TextView username,
                          QVROAuth2StoreCompletionHandler completionHandler);

  // taskForRefreshingAccessToken:withProvider:username:completionHandler:
  // A suspended task that refreshes the token; its handler gets a new record, which keeps what the
  // answer leaves out, and runs on the session's callback queue. Nothing is stored. Raises
  // InvalidArgumentException for a token without a refresh token, else
  // InternalInconsistencyException for an unknown provider.
  [[nodiscard]] qvr::Ref<qvr::URLSessionDataTask> taskForRefreshingAccessToken(
      const qvr::Ref<QVROAuth2Token>& token, qvr::TextView provider, qvr::TextView username,
      QVROAuth2TokenCompletionHandler completionHandler);

 private:
  struct QVR_HIDDEN Fields;
  struct QVR_HIDDEN Request;
  friend struct QVROAuth2TokenManagerInstance;
  QVROAuth2TokenManager();
  ~QVROAuth2TokenManager() override;

  // The key of both tables: the user name; the provider plays no part.
  static qvr::TextView identifierForProvider(qvr::TextView provider, qvr::TextView username);

  const std::unique_ptr<Fields> fields_;
};
