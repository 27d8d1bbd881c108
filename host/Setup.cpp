#include "host/Setup.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <variant>

#include "QVROAuth2Client/QVROAuth2Host.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/KeychainChoice.h"
#include "host/Keychains.h"
#include "host/NarratedSession.h"
#include "host/PendingRequest.h"
#include "host/RetryingSession.h"
#include "host/Secrets.h"
#include "host/SignInWorkspace.h"
#include "host/Wait.h"

namespace host {
namespace {

// Without a byte for this long a request is given up.
constexpr double kIdleTimeoutSeconds = 30;

struct Installed {
  ConfigurationLock lock;
  qvr::Ref<qvr::KeychainItems> keychainItems;
  std::string configurationPath;
  std::string keychainKind;
  qvr::Ref<ObservedSession> session;
  qvr::Clock clock;
};

// Never destroyed: the library's threads may outlive main().
Installed& installed() {
  static Installed& instance = *new Installed;
  return instance;
}

// The keychain of the configuration, with the lock that keeps it that.
std::optional<Failure> useKeychain(Configuration configuration, Installed& things) {
  auto lock = settleKeychain(configuration, examineKeyring);
  if (auto* failure = std::get_if<Failure>(&lock)) return *failure;
  auto keychain = makeKeychain(configuration.keychain.kind, configuration.keychain);
  if (auto* failure = std::get_if<Failure>(&keychain)) return *failure;
  things.lock = std::get<ConfigurationLock>(std::move(lock));
  things.keychainItems = std::get<qvr::Ref<qvr::KeychainItems>>(std::move(keychain));
  things.keychainKind = configuration.keychain.kind;
  return std::nullopt;
}

qvr::Ref<qvr::URLSession> makeSession(const Configuration& configuration) {
  qvr::URLSessionOptions options;
  options.idleTimeoutSeconds = kIdleTimeoutSeconds;
  options.requestTimeoutSeconds =
      std::max(secondsLeft(kRequestTimeoutSeconds), kLeastRequestSeconds);
  options.certificateAuthorityFile = configuration.endpoints.certificateAuthorityFile;
  options.usesHTTP2 = false;  // a command sends one request, and has to know what came of it
  return qvr::makeURLSession(options);
}

// A line that nobody reads is dropped.
qvr::LogSink makeLogSink() {
  return [write = qvr::makeStandardErrorLog()](std::string_view text) {
    if (canWrite(STDERR_FILENO)) write(withoutSecrets(text));
  };
}

// One queue, and so one thread, for all of the library's: a command does one thing after another.
qvr::SerialQueueFactory makeOneQueue() {
  return [queue = qvr::makeSerialQueue("qvr-oauth2")](const std::string&) { return queue; };
}

// What the library is given, from the inside out: the session that sends, told when steps are
// shown, sending a refresh once more when its connection is lost, and looked at by who wants to
// know more of an answer.
qvr::Ref<ObservedSession> observed(qvr::Ref<qvr::URLSession> session) {
  return qvr::makeRef<ObservedSession>(
      qvr::makeRef<RetryingSession>(narratedIfShown(std::move(session))));
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

void install(const Configuration& configuration, const Installed& things,
             const qvr::Ref<qvr::Workspace>& workspace) {
  QVROAuth2Host library;
  describe(configuration, library);
  library.setKeychainItems(things.keychainItems);
  library.setURLSession(things.session);
  library.setWorkspace(workspace);
  library.setClock(things.clock);
  library.setLogSink(makeLogSink());
  library.setSerialQueueFactory(makeOneQueue());
  library.install();
}

}  // namespace

std::optional<Failure> certificateAuthorityProblem(const Configuration& configuration) {
  const std::string& path = configuration.endpoints.certificateAuthorityFile;
  if (path.empty() || access(path.c_str(), R_OK) == 0) return std::nullopt;
  return Failure{kFailed, "The certificate_authority_file " + path + " cannot be read (" +
                              std::strerror(errno) + "): correct the configuration."};
}

std::optional<Failure> installHost(const Configuration& configuration, Seams seams) {
  if (auto failure = certificateAuthorityProblem(configuration)) return failure;
  keepSecret(configuration.google.clientSecret);
  Installed things;
  things.keychainItems = std::move(seams.keychainItems);
  if (!things.keychainItems) {
    if (auto failure = useKeychain(configuration, things)) return failure;
  }
  things.configurationPath = configuration.path;
  if (!seams.urlSession) seams.urlSession = makeSession(configuration);
  things.session = observed(std::move(seams.urlSession));
  things.clock = seams.clock ? std::move(seams.clock) : qvr::makeSystemClock();
  install(configuration, things, seams.workspace ? seams.workspace : signInWorkspace());
  installed() = std::move(things);
  return std::nullopt;
}

qvr::Ref<qvr::KeychainItems> keychainItems() {
  return installed().keychainItems;
}

const std::string& keychainKind() {
  return installed().keychainKind;
}

const std::string& configurationPath() {
  return installed().configurationPath;
}

qvr::Ref<ObservedSession> urlSession() {
  return installed().session;
}

qvr::Date now() {
  return installed().clock();
}

}  // namespace host
