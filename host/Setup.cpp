#include "host/Setup.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <variant>

#include "QVROAuth2Client/QVROAuth2Host.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/Passphrase.h"
#include "host/Secrets.h"
#include "host/SignInWorkspace.h"
#include "host/Wait.h"

namespace host {
namespace {

// Without a byte for this long a request is given up.
constexpr double kIdleTimeoutSeconds = 30;

struct Installed {
  qvr::Ref<qvr::KeychainItems> keychainItems;
  qvr::Clock clock;
};

// Never destroyed: the library's threads may outlive main().
Installed& installed() {
  static Installed& instance = *new Installed;
  return instance;
}

std::variant<qvr::Ref<qvr::KeychainItems>, Failure> makeKeychain(
    const Configuration::Keychain& keychain) {
  qvr::EncryptedFileKeychainOptions options;
  options.directory = keychain.directory;
  options.keyFile = keychain.keyFile;
  if (keychain.protection == "passphrase") {
    auto passphrase = obtainPassphrase(keychain.passphraseCommand);
    if (auto* failure = std::get_if<Failure>(&passphrase)) return *failure;
    options.passphrase = std::get<std::string>(std::move(passphrase));
    keepSecret(*options.passphrase);
  }
  return qvr::makeEncryptedFileKeychain(std::move(options));
}

qvr::Ref<qvr::URLSession> makeSession(const Configuration& configuration) {
  qvr::URLSessionOptions options;
  options.idleTimeoutSeconds = kIdleTimeoutSeconds;
  options.requestTimeoutSeconds = kRequestTimeoutSeconds;
  options.certificateAuthorityFile = configuration.endpoints.certificateAuthorityFile;
  return qvr::makeURLSession(options);
}

std::optional<Failure> checkCertificateAuthorityFile(const std::string& path) {
  if (path.empty() || access(path.c_str(), R_OK) == 0) return std::nullopt;
  return Failure{kFailed, "The certificate_authority_file " + path + " cannot be read (" +
                              std::strerror(errno) + "): correct the configuration."};
}

qvr::LogSink makeLogSink() {
  return
      [write = qvr::makeStandardErrorLog()](std::string_view text) { write(withoutSecrets(text)); };
}

void describe(const Configuration& configuration, QVROAuth2Host& library) {
  library.setBundleIdentifier(configuration.bundleIdentifier);
  library.setGoogleRegistration(configuration.google.clientIdentifier,
                                configuration.google.clientSecret,
                                configuration.google.customURIScheme);
  library.setMicrosoftApplicationIdentifier(configuration.microsoft.applicationIdentifier);
  library.setGoogleAuthorizationHost(configuration.endpoints.googleAuthorizationHost);
  library.setGoogleTokenHost(configuration.endpoints.googleTokenHost);
  library.setMicrosoftLoginHost(configuration.endpoints.microsoftLoginHost);
}

}  // namespace

std::optional<Failure> installHost(const Configuration& configuration, Seams seams) {
  if (auto failure =
          checkCertificateAuthorityFile(configuration.endpoints.certificateAuthorityFile)) {
    return failure;
  }
  keepSecret(configuration.google.clientSecret);
  if (!seams.keychainItems) {
    auto keychain = makeKeychain(configuration.keychain);
    if (auto* failure = std::get_if<Failure>(&keychain)) return *failure;
    seams.keychainItems = std::get<qvr::Ref<qvr::KeychainItems>>(std::move(keychain));
  }
  if (!seams.urlSession) seams.urlSession = makeSession(configuration);
  if (!seams.workspace) seams.workspace = signInWorkspace();
  if (!seams.clock) seams.clock = qvr::makeSystemClock();
  QVROAuth2Host library;
  describe(configuration, library);
  library.setKeychainItems(seams.keychainItems);
  library.setURLSession(seams.urlSession);
  library.setWorkspace(seams.workspace);
  library.setClock(seams.clock);
  library.setLogSink(makeLogSink());
  library.install();
  installed() = {std::move(seams.keychainItems), std::move(seams.clock)};
  return std::nullopt;
}

qvr::Ref<qvr::KeychainItems> keychainItems() {
  return installed().keychainItems;
}

qvr::Date now() {
  return installed().clock();
}

}  // namespace host
