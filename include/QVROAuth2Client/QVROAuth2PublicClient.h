// The OAuth 2.0 public (native-application) client: one registration at one provider, carrying one
// authorization attempt at a time (RFC 6749, RFC 7636, RFC 8252).
//
// The base is abstract; use QVRGoogleOAuth2PublicClient or QVRMicrosoftOAuth2PublicClient, or
// derive a provider of your own by overriding the six hooks. A provider of your own can build its
// URL, exchange, refresh, revoke and store; redirects and the token manager know the two built-in
// ones.
//
// Thread rule: properties are individually atomic; everything may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"
#include "QVROAuth2Client/QVROAuth2AuthorizationResponse.h"
#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/GetURLEvent.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URL.h"
#include "QVROAuth2Client/platform/URLSession.h"

// Called once with (response, null) or (null, error).
using QVROAuth2AuthorizationCompletionHandler =
    std::function<void(qvr::Ref<QVROAuth2AuthorizationResponse> response, qvr::ErrorPtr error)>;
using QVROAuth2AccessTokenCompletionHandler =
    std::function<void(qvr::Ref<QVROAuth2AccessTokenResponse> response, qvr::ErrorPtr error)>;

// Called once; a null error is success.
using QVROAuth2RevocationCompletionHandler = std::function<void(qvr::ErrorPtr error)>;

class QVR_EXPORT QVROAuth2PublicClient : public qvr::Object {
 public:
  // The class-level hooks by which a provider describes itself. They use no instance state. In the
  // base all six raise InvalidArgumentException. URIs are complete texts; revokeURI is absent when
  // the provider has no revocation endpoint.
  virtual qvr::Text provider() const;
  virtual qvr::Text customURIScheme() const;
  virtual qvr::Text redirectURI() const;
  virtual qvr::Text authorizationURI() const;
  virtual qvr::Text tokenURI() const;
  virtual qvr::Text revokeURI() const;

  // Derived from the hooks: the host and the path of redirectURI (each absent when it has none),
  // and whether revokeURI is there and not empty.
  qvr::Text redirectURIAuthority() const;
  qvr::Text redirectURIPath() const;
  bool supportsTokenRevocation() const;

  // The session of all token-endpoint traffic: the host's, shared by the whole process.
  qvr::Ref<qvr::URLSession> urlSession() const;

  // The registration: "client_id", and the secret, absent (or empty) for a client without one.
  const qvr::Text& clientIdentifier() const noexcept;
  const qvr::Text& clientSecret() const noexcept;

  // The "scope" of an authorization (scopes separated by single spaces), sent as it is; absent by
  // default, and then not sent.
  qvr::Text scope() const;
  void setScope(qvr::TextView scope);

  // True while an authorization is in progress.
  bool isRequestingAuthorization() const;

  // requestAuthorizationCodeWithCompletionHandler:
  // Opens the authorization URL, with a fresh state and PKCE pair, in the default browser, and
  // calls the handler once, when handleGetURLEvent() receives the redirect with that state or the
  // attempt is cancelled. There is no time-out: an attempt whose redirect never comes waits until
  // cancelled. A second start on the same client does not cancel the first, but replaces the
  // verifier that the first one's code needs. The attempt keeps the client alive.
  //
  // The handler runs on the thread that delivers the outcome, with no lock held: that of
  // handleGetURLEvent() or of the cancellation; or before the start returns, when the random source
  // fails (NSOSStatusErrorDomain) or no browser opens (NSURLErrorDomain -1). Errors of the redirect
  // are those of QVROAuth2AuthorizationResponse. The response's code may be absent: check it.
  // Raises InternalInconsistencyException when the hooks yield no URL.
  void requestAuthorizationCode(QVROAuth2AuthorizationCompletionHandler completionHandler);

  // cancelRequestAuthorizationCode
  // Ends the pending attempt: its handler is called with NSURLErrorDomain -1012 before this
  // returns. Does nothing when none is pending. A redirect that comes later is ignored.
  void cancelRequestAuthorizationCode();

  // handleGetURLEvent:withReplyEvent:
  // Takes a redirect. The attempt whose state the URL carries gets its outcome before this returns;
  // a URL that is not ours, or has no state or an unknown one, is ignored; an event without a URL
  // is logged. Call it on the thread that starts attempts, after the start has returned: a redirect
  // that arrives earlier waits in the host's queue. `replyEvent` is not used.
  static void handleGetURLEvent(const qvr::GetURLEvent& event,
                                qvr::GetURLEvent* replyEvent = nullptr);

  // The three tasks below are returned suspended; the caller resumes them, and may cancel them.
  // They do not keep the client alive. Handlers run on the session's callback queue. Errors:
  // transport errors unchanged (NSURLErrorDomain), an unreadable body (NSCocoaErrorDomain 3840), a
  // protocol error of a 200 or 4xx answer (QVROAuth2ErrorDomain), any other status
  // (QVROAuth2HTTPErrorDomain; its userInfo has, for exchange and refresh, the reason text and the
  // body; for revocation, the body as its description, or the reason text when the body is not
  // UTF-8). Each raises InternalInconsistencyException when the endpoint yields no URL, and
  // RangeException for a value with a space and more text after it: check values that come from
  // elsewhere for spaces before.

  // taskForRequestingAccessTokenWithAuthorizationCode:completionHandler:
  // Exchanges the code of this client's latest authorization (RFC 6749 section 4.1.3, RFC 7636
  // section 4.5). The handler is required.
  [[nodiscard]] qvr::Ref<qvr::URLSessionDataTask> taskForRequestingAccessTokenWithAuthorizationCode(
      qvr::TextView code, QVROAuth2AccessTokenCompletionHandler completionHandler) const;

  // taskForRefreshingAccessTokenWithRefreshToken:completionHandler:
  // Refreshes an access token (RFC 6749 section 6). The handler is required.
  [[nodiscard]] qvr::Ref<qvr::URLSessionDataTask> taskForRefreshingAccessTokenWithRefreshToken(
      qvr::TextView refreshToken, QVROAuth2AccessTokenCompletionHandler completionHandler) const;

  // taskForRevokingToken:withTokenTypeHint:completionHandler:
  // Revokes an access or refresh token (RFC 7009). The hint ("access_token", "refresh_token") may
  // be absent. Only status 200 is success.
  [[nodiscard]] qvr::Ref<qvr::URLSessionDataTask> taskForRevokingToken(
      qvr::TextView token, qvr::TextView tokenTypeHint,
      QVROAuth2RevocationCompletionHandler completionHandler) const;

 protected:
  // initWithIdentifier:secret:
  // Copies both; nothing is validated.
  QVROAuth2PublicClient(qvr::TextView identifier, qvr::TextView secret);
  ~QVROAuth2PublicClient() override;

  // The name that exceptions print.
  virtual std::string className() const;

  // The values of the current attempt. State is there exactly while one is in progress; the others
  // keep the latest attempt's values, of which the code exchange needs the verifier.
  qvr::Text codeVerifier() const;
  void setCodeVerifier(qvr::TextView codeVerifier);
  qvr::Text codeChallenge() const;
  void setCodeChallenge(qvr::TextView codeChallenge);
  qvr::Text codeChallengeMethod() const;
  void setCodeChallengeMethod(qvr::TextView codeChallengeMethod);
  qvr::Text state() const;
  void setState(qvr::TextView state);

  // generateRandomBytesAndReturnError:
  // A new state: 32 secure random bytes in base64 (44 characters). Absent, with
  // NSOSStatusErrorDomain and the generator's status in *error, when the generator fails.
  static qvr::Text generateRandomBytesAndReturnError(qvr::ErrorPtr* error = nullptr);

  // generateCodeVerifier
  // A new code verifier: 128 unreserved characters (RFC 7636 section 4.1).
  static std::string generateCodeVerifier();

  // S256CodeChallengeWithCodeVerifier:
  // The S256 challenge (RFC 7636 section 4.2) of the verifier up to its first NUL; absent for an
  // absent verifier.
  static qvr::Text S256CodeChallengeWithCodeVerifier(qvr::TextView codeVerifier);

  // queryPercentEncoded:
  // The text with all but the unreserved characters of RFC 3986 section 2.3 percent-encoded; absent
  // for text that is not UTF-8.
  static qvr::Text queryPercentEncoded(qvr::TextView text);

  // A pair of the authorization query: encoded key, "=", encoded value.
  static std::string queryPair(qvr::TextView key, qvr::TextView value);

  // Appends the pair when the value has any characters; for a provider's optional parameters.
  static void appendIfNotEmpty(std::vector<std::string>& pairs, qvr::TextView key,
                               qvr::TextView value);

  // authorizationURLQueries
  // The ordered pairs of the authorization request (RFC 6749 section 4.1.1, RFC 7636 section 4.3).
  // A provider appends its own.
  virtual std::vector<std::string> authorizationURLQueries() const;

  // authorizationURL
  // The complete URL; absent when there is no endpoint or the text is not a URL.
  std::optional<qvr::URL> authorizationURL() const;

  // The form bodies and requests of the three exchanges, in wire order (RFC 6749 sections 4.1.3 and
  // 6, RFC 7009 section 2.1). A request is absent when its endpoint yields no URL.
  std::vector<std::string> formParametersForRequestingAccessTokenWithAuthorizationCode(
      qvr::TextView code) const;
  std::optional<qvr::URLRequest> accessTokenRequestWithAuthorizationCode(qvr::TextView code) const;
  std::vector<std::string> formParametersForRefreshingAccessTokenWithRefreshToken(
      qvr::TextView refreshToken) const;
  std::optional<qvr::URLRequest> refreshAccessTokenRequestWithRefreshToken(
      qvr::TextView refreshToken) const;
  std::vector<std::string> formParametersForRevokingToken(qvr::TextView token,
                                                          qvr::TextView tokenTypeHint) const;
  std::optional<qvr::URLRequest> tokenRevocationRequestWithToken(qvr::TextView token,
                                                                 qvr::TextView tokenTypeHint) const;

 private:
  struct QVR_HIDDEN Fields;
  [[noreturn]] void doesNotRecognizeSelector(std::string_view selector) const;
  void addFormCredentials(std::vector<std::string>& parameters) const;

  const std::unique_ptr<Fields> fields_;
};
