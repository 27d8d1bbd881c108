#include "QVROAuth2Client/QVRGoogleOAuth2PublicClient.h"

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "src/client/AtomicText.h"
#include "src/platform/World.h"

namespace {

const qvr::World::Settings& settings() {
  return qvr::World::current().settings();
}

}  // namespace

struct QVRGoogleOAuth2PublicClient::Fields {
  AtomicText loginHint;
};

QVRGoogleOAuth2PublicClient::QVRGoogleOAuth2PublicClient()
    : QVROAuth2PublicClient(settings().googleClientIdentifier, settings().googleClientSecret),
      fields_(std::make_unique<Fields>()) {}

QVRGoogleOAuth2PublicClient::~QVRGoogleOAuth2PublicClient() = default;

qvr::Ref<QVRGoogleOAuth2PublicClient> QVRGoogleOAuth2PublicClient::init() {
  return qvr::Ref<QVRGoogleOAuth2PublicClient>::adopt(new QVRGoogleOAuth2PublicClient);
}

const QVRGoogleOAuth2PublicClient& QVRGoogleOAuth2PublicClient::classObject() {
  static const QVRGoogleOAuth2PublicClient* const object = [] {
    auto* const made = new QVRGoogleOAuth2PublicClient;
    made->makeImmortal();
    return made;
  }();
  return *object;
}

std::string QVRGoogleOAuth2PublicClient::className() const {
  return "QVRGoogleOAuth2PublicClient";
}

qvr::Text QVRGoogleOAuth2PublicClient::provider() const {
  return std::string(QVROAuth2ProviderGoogle);
}

qvr::Text QVRGoogleOAuth2PublicClient::customURIScheme() const {
  return settings().googleCustomURIScheme;
}

qvr::Text QVRGoogleOAuth2PublicClient::redirectURI() const {
  return settings().googleCustomURIScheme + ":/oauth2/auth";
}

qvr::Text QVRGoogleOAuth2PublicClient::authorizationURI() const {
  return "https://" + settings().googleAuthorizationHost + "/o/oauth2/auth";
}

qvr::Text QVRGoogleOAuth2PublicClient::tokenURI() const {
  return "https://" + settings().googleTokenHost + "/token";
}

qvr::Text QVRGoogleOAuth2PublicClient::revokeURI() const {
  return "https://" + settings().googleTokenHost + "/revoke";
}

qvr::Text QVRGoogleOAuth2PublicClient::loginHint() const {
  return fields_->loginHint.get();
}

void QVRGoogleOAuth2PublicClient::setLoginHint(qvr::TextView loginHint) {
  fields_->loginHint.set(loginHint);
}

std::vector<std::string> QVRGoogleOAuth2PublicClient::authorizationURLQueries() const {
  std::vector<std::string> pairs = QVROAuth2PublicClient::authorizationURLQueries();
  appendIfNotEmpty(pairs, "login_hint", loginHint());
  return pairs;
}
