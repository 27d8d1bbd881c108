// The client's data, its hooks, and the authorization URL.

#include "QVROAuth2Client/QVROAuth2PublicClient.h"

#include <cstdio>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/client/PublicClientFields.h"
#include "src/platform/PercentCoding.h"
#include "src/platform/World.h"

namespace {

// The unreserved characters of RFC 3986 section 2.3, the only ones kept in the query.
constexpr qvr::CharacterSet kQueryCharacters(
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~");

void appendQuery(std::string& text, const std::vector<std::string>& pairs) {
  std::size_t length = text.size();
  for (const std::string& pair : pairs)
    length += 1 + pair.size();
  text.reserve(length);
  char separator = '?';
  for (const std::string& pair : pairs) {
    text.append(1, separator).append(pair);
    separator = '&';
  }
}

}  // namespace

QVROAuth2PublicClient::QVROAuth2PublicClient(qvr::TextView identifier, qvr::TextView secret)
    : fields_(std::make_unique<Fields>()) {
  fields_->clientIdentifier = identifier.text();
  fields_->clientSecret = secret.text();
}

QVROAuth2PublicClient::~QVROAuth2PublicClient() = default;

std::string QVROAuth2PublicClient::className() const {
  return "QVROAuth2PublicClient";
}

void QVROAuth2PublicClient::doesNotRecognizeSelector(std::string_view selector) const {
  char address[2 + 2 * sizeof(void*) + 1];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  throw qvr::InvalidArgumentException("+[" + className() + " " + std::string(selector) +
                                      "]: unrecognized selector sent to class " + address);
}

qvr::Text QVROAuth2PublicClient::provider() const {
  doesNotRecognizeSelector("provider");
}
qvr::Text QVROAuth2PublicClient::customURIScheme() const {
  doesNotRecognizeSelector("customURIScheme");
}
qvr::Text QVROAuth2PublicClient::redirectURI() const {
  doesNotRecognizeSelector("redirectURI");
}
qvr::Text QVROAuth2PublicClient::authorizationURI() const {
  doesNotRecognizeSelector("authorizationURI");
}
qvr::Text QVROAuth2PublicClient::tokenURI() const {
  doesNotRecognizeSelector("tokenURI");
}
qvr::Text QVROAuth2PublicClient::revokeURI() const {
  doesNotRecognizeSelector("revokeURI");
}

qvr::Text QVROAuth2PublicClient::redirectURIAuthority() const {
  const std::optional<qvr::URL> url = qvr::URL::URLWithString(redirectURI());
  return url ? url->host() : std::nullopt;
}

qvr::Text QVROAuth2PublicClient::redirectURIPath() const {
  const std::optional<qvr::URL> url = qvr::URL::URLWithString(redirectURI());
  return url ? url->path() : std::nullopt;
}

bool QVROAuth2PublicClient::supportsTokenRevocation() const {
  const qvr::Text uri = revokeURI();
  return uri && !uri->empty();
}

qvr::Ref<qvr::URLSession> QVROAuth2PublicClient::urlSession() const {
  return qvr::World::current().urlSession();
}

const qvr::Text& QVROAuth2PublicClient::clientIdentifier() const noexcept {
  return fields_->clientIdentifier;
}
const qvr::Text& QVROAuth2PublicClient::clientSecret() const noexcept {
  return fields_->clientSecret;
}

qvr::Text QVROAuth2PublicClient::scope() const {
  return fields_->scope.get();
}
void QVROAuth2PublicClient::setScope(qvr::TextView scope) {
  fields_->scope.set(scope);
}

qvr::Text QVROAuth2PublicClient::codeVerifier() const {
  return fields_->codeVerifier.get();
}
void QVROAuth2PublicClient::setCodeVerifier(qvr::TextView codeVerifier) {
  fields_->codeVerifier.set(codeVerifier);
}

qvr::Text QVROAuth2PublicClient::codeChallenge() const {
  return fields_->codeChallenge.get();
}
void QVROAuth2PublicClient::setCodeChallenge(qvr::TextView codeChallenge) {
  fields_->codeChallenge.set(codeChallenge);
}

qvr::Text QVROAuth2PublicClient::codeChallengeMethod() const {
  return fields_->codeChallengeMethod.get();
}
void QVROAuth2PublicClient::setCodeChallengeMethod(qvr::TextView codeChallengeMethod) {
  fields_->codeChallengeMethod.set(codeChallengeMethod);
}

qvr::Text QVROAuth2PublicClient::state() const {
  return fields_->state.get();
}
void QVROAuth2PublicClient::setState(qvr::TextView state) {
  fields_->state.set(state);
}

bool QVROAuth2PublicClient::isRequestingAuthorization() const {
  return state().has_value();
}

qvr::Text QVROAuth2PublicClient::queryPercentEncoded(qvr::TextView text) {
  return qvr::percentEncoded(text, kQueryCharacters);
}

std::string QVROAuth2PublicClient::queryPair(qvr::TextView key, qvr::TextView value) {
  return qvr::encodedPair(key, value, kQueryCharacters);
}

void QVROAuth2PublicClient::appendIfNotEmpty(std::vector<std::string>& pairs, qvr::TextView key,
                                             qvr::TextView value) {
  if (!value.view().empty()) pairs.push_back(queryPair(key, value));
}

std::vector<std::string> QVROAuth2PublicClient::authorizationURLQueries() const {
  std::vector<std::string> pairs;
  pairs.reserve(8);
  pairs.push_back(queryPair("client_id", clientIdentifier()));
  pairs.push_back(queryPair("redirect_uri", redirectURI()));
  pairs.push_back(queryPair("response_type", "code"));
  // An empty value is sent; only an absent one is left out.
  const auto append = [&pairs](qvr::TextView key, const qvr::Text& value) {
    if (value) pairs.push_back(queryPair(key, value));
  };
  append("scope", scope());
  append("code_challenge", codeChallenge());
  append("code_challenge_method", codeChallengeMethod());
  append("state", state());
  return pairs;
}

std::optional<qvr::URL> QVROAuth2PublicClient::authorizationURL() const {
  qvr::Text text = authorizationURI();
  if (!text || text->empty()) return std::nullopt;
  appendQuery(*text, authorizationURLQueries());
  return qvr::URL::URLWithString(text);
}
