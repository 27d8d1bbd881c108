// The front channel: the browser is opened on the authorization URL, and the redirect finds its
// attempt by the state it carries (RFC 6749 sections 4.1.1 and 4.1.2, RFC 8252).

#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "QVROAuth2Client/platform/Exception.h"
#include "src/client/PendingAuthorizations.h"
#include "src/platform/Log.h"
#include "src/platform/World.h"

namespace {

constexpr std::string_view kHandleGetURLEvent =
    "+[QVROAuth2PublicClient handleGetURLEvent:withReplyEvent:]";

std::optional<qvr::URL> redirectURL(const qvr::GetURLEvent& event) {
  if (!event.directObject || event.directObject->empty()) return std::nullopt;
  return qvr::URL::URLWithString(event.directObject);
}

// Gives the attempt that waits for this redirect its outcome; every other redirect is ignored.
void deliver(const qvr::URL& url) {
  qvr::Text state;
  qvr::ErrorPtr error;
  const auto response =
      QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(url, &state, &error);
  if (!state) return;
  const auto handler = PendingAuthorizations::shared().take(*state);
  if (!handler) return;
  response ? handler(response, nullptr) : handler(nullptr, error);
}

void logFailure(const qvr::GetURLEvent& event) {
  std::optional<qvr::Error::UserInfo> userInfo;
  if (event.errorString) {
    userInfo = {{std::string(qvr::NSLocalizedDescriptionKey), *event.errorString}};
  }
  qvr::logError(kHandleGetURLEvent,
                qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain,
                                            event.errorNumber.value_or(0), std::move(userInfo)));
}

}  // namespace

void QVROAuth2PublicClient::requestAuthorizationCode(
    QVROAuth2AuthorizationCompletionHandler completionHandler) {
  qvr::ErrorPtr error;
  const qvr::Text newState = generateRandomBytesAndReturnError(&error);
  if (!newState) return completionHandler(nullptr, error);
  setState(newState);

  const std::string verifier = generateCodeVerifier();
  const qvr::Text challenge = S256CodeChallengeWithCodeVerifier(verifier);
  setCodeVerifier(verifier);
  setCodeChallenge(challenge);
  setCodeChallengeMethod("S256");

  const std::optional<qvr::URL> url = authorizationURL();
  if (!url) throw qvr::InternalInconsistencyException("*** nil authorizationURL");

  if (!qvr::World::current().workspace()->openURL(*url)) {
    setState(nullptr);
    return completionHandler(
        nullptr, qvr::Error::errorWithDomain(qvr::NSURLErrorDomain, qvr::NSURLErrorUnknown));
  }
  // The stored handler keeps the client alive, and ends its attempt before the caller hears of it.
  PendingAuthorizations::shared().store(
      *newState,
      [client = qvr::Ref<QVROAuth2PublicClient>::retain(this),
       handler = std::move(completionHandler)](
          const qvr::Ref<QVROAuth2AuthorizationResponse>& response, const qvr::ErrorPtr& outcome) {
        client->setState(nullptr);
        handler(response, outcome);
      });
}

void QVROAuth2PublicClient::cancelRequestAuthorizationCode() {
  const qvr::Text current = state();
  if (!current) return;
  const auto handler = PendingAuthorizations::shared().take(*current);
  if (!handler) return;
  handler(nullptr, qvr::Error::errorWithDomain(qvr::NSURLErrorDomain,
                                               qvr::NSURLErrorUserCancelledAuthentication));
}

void QVROAuth2PublicClient::handleGetURLEvent(const qvr::GetURLEvent& event, qvr::GetURLEvent*) {
  const std::optional<qvr::URL> url = redirectURL(event);
  url ? deliver(*url) : logFailure(event);
}
