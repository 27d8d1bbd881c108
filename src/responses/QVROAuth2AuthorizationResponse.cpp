#include "QVROAuth2Client/QVROAuth2AuthorizationResponse.h"

#include <algorithm>

#include "QVROAuth2Client/QVRGoogleOAuth2PublicClient.h"
#include "QVROAuth2Client/QVRMicrosoftOAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2Error.h"
#include "src/platform/PercentCoding.h"
#include "src/responses/EqualHTTPPaths.h"

namespace {

// Schemes and hosts have no other letters whose case matters.
qvr::Text lowercased(qvr::Text text) {
  if (!text) return text;
  std::transform(text->begin(), text->end(), text->begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
  });
  return text;
}

// The profile whose redirects come on this scheme; null when there is none.
const QVROAuth2PublicClient* profileForScheme(const qvr::Text& scheme) {
  const QVROAuth2PublicClient* const profiles[] = {&QVRGoogleOAuth2PublicClient::classObject(),
                                                   &QVRMicrosoftOAuth2PublicClient::classObject()};
  for (const QVROAuth2PublicClient* profile : profiles) {
    if (scheme && scheme == lowercased(profile->customURIScheme())) return profile;
  }
  return nullptr;
}

bool isRedirectURL(const qvr::URL& url) {
  const QVROAuth2PublicClient* const profile = profileForScheme(lowercased(url.scheme()));
  return profile != nullptr &&
         lowercased(url.host()) == lowercased(profile->redirectURIAuthority()) &&
         equalHTTPPaths(url.path(), profile->redirectURIPath());
}

// The response parameters of RFC 6749 sections 4.1.2 and 4.1.2.1. Of a repeated parameter the last
// one counts, also when its value cannot be decoded and so is absent.
struct ResponseParameters {
  qvr::Text code;
  qvr::Text error;
  qvr::Text errorDescription;
  qvr::Text errorURI;
  qvr::Text state;

  explicit ResponseParameters(std::string_view query) {
    while (true) {
      const std::size_t end = query.find('&');
      take(query.substr(0, end));
      if (end == std::string_view::npos) return;
      query.remove_prefix(end + 1);
    }
  }

 private:
  void take(std::string_view piece) {
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos) return;
    const qvr::Text name = qvr::percentDecoded(piece.substr(0, equals));
    if (qvr::Text* slot = slotNamed(name)) *slot = qvr::percentDecoded(piece.substr(equals + 1));
  }

  qvr::Text* slotNamed(const qvr::Text& name) {
    if (name == "code") return &code;
    if (name == "error") return &error;
    if (name == "error_description") return &errorDescription;
    if (name == "error_uri") return &errorURI;
    if (name == "state") return &state;
    return nullptr;
  }
};

qvr::ErrorPtr protocolError(const ResponseParameters& parameters) {
  const auto value = [](const qvr::Text& text) -> std::optional<qvr::Value> {
    return text ? std::optional<qvr::Value>(*text) : std::nullopt;
  };
  const std::optional<qvr::Value> error = value(parameters.error);
  const std::optional<qvr::Value> description = value(parameters.errorDescription);
  const std::optional<qvr::Value> uri = value(parameters.errorURI);
  return QVROAuth2ErrorFromParameters(error ? &*error : nullptr,
                                      description ? &*description : nullptr, uri ? &*uri : nullptr);
}

}  // namespace

bool equalHTTPPaths(qvr::TextView path, qvr::TextView expected) {
  const auto isRoot = [](qvr::TextView text) { return text.view().empty() || text.view() == "/"; };
  if (isRoot(path) && isRoot(expected)) return true;
  return path.text() == expected.text();
}

QVROAuth2AuthorizationResponse::~QVROAuth2AuthorizationResponse() = default;

qvr::Ref<QVROAuth2AuthorizationResponse> QVROAuth2AuthorizationResponse::initWithCode(
    qvr::TextView code) {
  return qvr::Ref<QVROAuth2AuthorizationResponse>::adopt(new QVROAuth2AuthorizationResponse(code));
}

qvr::Ref<QVROAuth2AuthorizationResponse>
QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(const qvr::URL& redirectURL,
                                                                     qvr::Text* state,
                                                                     qvr::ErrorPtr* error) {
  if (!isRedirectURL(redirectURL)) {
    if (error != nullptr) {
      *error = qvr::Error::errorWithDomain(
          qvr::NSURLErrorDomain, qvr::NSURLErrorFileDoesNotExist,
          qvr::Error::UserInfo{{std::string(qvr::NSURLErrorFailingURLErrorKey), redirectURL}});
    }
    return nullptr;
  }
  const ResponseParameters parameters(redirectURL.query().value_or(""));
  if (state != nullptr) *state = parameters.state;
  if (parameters.error) {
    if (error != nullptr) *error = protocolError(parameters);
    return nullptr;
  }
  return initWithCode(parameters.code);
}
