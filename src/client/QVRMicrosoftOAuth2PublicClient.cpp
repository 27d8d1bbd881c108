#include "QVROAuth2Client/QVRMicrosoftOAuth2PublicClient.h"

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "src/client/AtomicText.h"
#include "src/platform/World.h"

namespace {

const qvr::World::Settings& settings() {
  return qvr::World::current().settings();
}

// Accounts of organisations and personal ones alike.
std::string endpoint(std::string_view name) {
  return "https://" + settings().microsoftLoginHost + "/common/oauth2/v2.0/" + std::string(name);
}

}  // namespace

struct QVRMicrosoftOAuth2PublicClient::Fields {
  AtomicText responseMode{"query"};
  AtomicText prompt;
  AtomicText loginHint;
  AtomicText domainHint;
};

QVRMicrosoftOAuth2PublicClient::QVRMicrosoftOAuth2PublicClient()
    : QVROAuth2PublicClient(settings().microsoftApplicationIdentifier, nullptr),
      fields_(std::make_unique<Fields>()) {}

QVRMicrosoftOAuth2PublicClient::~QVRMicrosoftOAuth2PublicClient() = default;

qvr::Ref<QVRMicrosoftOAuth2PublicClient> QVRMicrosoftOAuth2PublicClient::init() {
  return qvr::Ref<QVRMicrosoftOAuth2PublicClient>::adopt(new QVRMicrosoftOAuth2PublicClient);
}

const QVRMicrosoftOAuth2PublicClient& QVRMicrosoftOAuth2PublicClient::classObject() {
  static const QVRMicrosoftOAuth2PublicClient* const object = [] {
    auto* const made = new QVRMicrosoftOAuth2PublicClient;
    made->makeImmortal();
    return made;
  }();
  return *object;
}

std::string QVRMicrosoftOAuth2PublicClient::className() const {
  return "QVRMicrosoftOAuth2PublicClient";
}

qvr::Text QVRMicrosoftOAuth2PublicClient::provider() const {
  return std::string(QVROAuth2ProviderMicrosoft);
}

qvr::Text QVRMicrosoftOAuth2PublicClient::customURIScheme() const {
  return "msauth." + settings().bundleIdentifier.value_or("");
}

qvr::Text QVRMicrosoftOAuth2PublicClient::redirectURI() const {
  return *customURIScheme() + "://auth";
}

qvr::Text QVRMicrosoftOAuth2PublicClient::authorizationURI() const {
  return endpoint("authorize");
}

qvr::Text QVRMicrosoftOAuth2PublicClient::tokenURI() const {
  return endpoint("token");
}

qvr::Text QVRMicrosoftOAuth2PublicClient::revokeURI() const {
  return std::nullopt;
}

qvr::Text QVRMicrosoftOAuth2PublicClient::responseMode() const {
  return fields_->responseMode.get();
}
void QVRMicrosoftOAuth2PublicClient::setResponseMode(qvr::TextView responseMode) {
  fields_->responseMode.set(responseMode);
}

qvr::Text QVRMicrosoftOAuth2PublicClient::prompt() const {
  return fields_->prompt.get();
}
void QVRMicrosoftOAuth2PublicClient::setPrompt(qvr::TextView prompt) {
  fields_->prompt.set(prompt);
}

qvr::Text QVRMicrosoftOAuth2PublicClient::loginHint() const {
  return fields_->loginHint.get();
}
void QVRMicrosoftOAuth2PublicClient::setLoginHint(qvr::TextView loginHint) {
  fields_->loginHint.set(loginHint);
}

qvr::Text QVRMicrosoftOAuth2PublicClient::domainHint() const {
  return fields_->domainHint.get();
}
void QVRMicrosoftOAuth2PublicClient::setDomainHint(qvr::TextView domainHint) {
  fields_->domainHint.set(domainHint);
}

std::vector<std::string> QVRMicrosoftOAuth2PublicClient::authorizationURLQueries() const {
  std::vector<std::string> pairs = QVROAuth2PublicClient::authorizationURLQueries();
  appendIfNotEmpty(pairs, "response_mode", responseMode());
  appendIfNotEmpty(pairs, "prompt", prompt());
  appendIfNotEmpty(pairs, "login_hint", loginHint());
  appendIfNotEmpty(pairs, "domain_hint", domainHint());
  return pairs;
}
