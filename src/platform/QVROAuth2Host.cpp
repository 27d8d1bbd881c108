#include "QVROAuth2Client/QVROAuth2Host.h"

#include "src/platform/HostSettings.h"
#include "src/platform/World.h"

namespace {

std::string ownedOrEmpty(qvr::TextView text) {
  return std::string(text.view());
}

bool isLocalizable(std::string_view text) {
  return text == "Missing required response parameter: %@" ||
         text == "Missing required response parameters: %@" || text == ", ";
}

}  // namespace

QVROAuth2Host::QVROAuth2Host() : settings_(std::make_unique<Settings>()) {}
QVROAuth2Host::~QVROAuth2Host() = default;
QVROAuth2Host::QVROAuth2Host(QVROAuth2Host&&) noexcept = default;
QVROAuth2Host& QVROAuth2Host::operator=(QVROAuth2Host&&) noexcept = default;

void QVROAuth2Host::setBundleIdentifier(qvr::TextView bundleIdentifier) {
  settings_->bundleIdentifier = bundleIdentifier.text();
}

void QVROAuth2Host::setGoogleRegistration(qvr::TextView clientIdentifier,
                                          qvr::TextView clientSecret,
                                          qvr::TextView customURIScheme) {
  settings_->googleClientIdentifier = ownedOrEmpty(clientIdentifier);
  settings_->googleClientSecret = ownedOrEmpty(clientSecret);
  settings_->googleCustomURIScheme = ownedOrEmpty(customURIScheme);
}

void QVROAuth2Host::setMicrosoftApplicationIdentifier(qvr::TextView applicationIdentifier) {
  settings_->microsoftApplicationIdentifier = ownedOrEmpty(applicationIdentifier);
}

void QVROAuth2Host::setGoogleAuthorizationHost(qvr::TextView host) {
  settings_->googleAuthorizationHost = ownedOrEmpty(host);
}

void QVROAuth2Host::setGoogleTokenHost(qvr::TextView host) {
  settings_->googleTokenHost = ownedOrEmpty(host);
}

void QVROAuth2Host::setMicrosoftLoginHost(qvr::TextView host) {
  settings_->microsoftLoginHost = ownedOrEmpty(host);
}

void QVROAuth2Host::setLocalizedString(qvr::TextView text, qvr::TextView translation) {
  if (!isLocalizable(text.view()) || !translation.has_value()) return;
  settings_->localizedStrings.insert_or_assign(std::string(text.view()),
                                               std::string(translation.view()));
}

void QVROAuth2Host::setURLSession(qvr::Ref<qvr::URLSession> session) {
  settings_->urlSession = std::move(session);
}

void QVROAuth2Host::setKeychainItems(qvr::Ref<qvr::KeychainItems> items) {
  settings_->keychainItems = std::move(items);
}

void QVROAuth2Host::setWorkspace(qvr::Ref<qvr::Workspace> workspace) {
  settings_->workspace = std::move(workspace);
}

void QVROAuth2Host::setLogSink(qvr::LogSink sink) {
  settings_->logSink = std::move(sink);
}

void QVROAuth2Host::setRandomSource(qvr::Ref<qvr::RandomSource> source) {
  settings_->randomSource = std::move(source);
}

void QVROAuth2Host::setClock(qvr::Clock clock) {
  settings_->clock = std::move(clock);
}

void QVROAuth2Host::setSerialQueueFactory(qvr::SerialQueueFactory factory) {
  settings_->serialQueueFactory = std::move(factory);
}

void QVROAuth2Host::install() {
  qvr::World::current().install(std::move(*settings_));
  *settings_ = Settings{};
}
