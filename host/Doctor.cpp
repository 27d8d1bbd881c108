// qvr-oauth2 doctor: everything that signing in needs, looked at before somebody needs it.
#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/DoctorChecks.h"
#include "host/DoctorEndpoints.h"
#include "host/DoctorPrinting.h"
#include "host/Keychains.h"
#include "host/Paths.h"
#include "host/Secrets.h"
#include "host/Setup.h"

namespace host {
namespace {

// For the session bus and the keyring to answer a call. A slow one is no use to a sign-in either.
constexpr double kBusTimeoutSeconds = 2;

void append(Checks& checks, Checks further) {
  std::move(further.begin(), further.end(), std::back_inserter(checks));
}

KeychainSources keychainSources() {
  qvr::SecretServiceOptions options;
  options.callTimeoutSeconds = kBusTimeoutSeconds;
  options.mayPrompt = false;
  return {.examineSecretService = [options] { return qvr::examineSecretService(options); },
          .makeSecretService = [options] { return qvr::makeSecretServiceKeychain(options); },
          .makeFiles = [](const auto& keychain) { return makeKeychain(kEncryptedFile, keychain); }};
}

// A name of its own: that of a sign-in which waits is not touched.
qvr::URLReceiverOptions busOptions() {
  return {
      .busName = "org.qvroauth2.doctor", .busAddress = "", .timeoutSeconds = kBusTimeoutSeconds};
}

qvr::Ref<qvr::URLSession> makeEndpointSession(const Configuration& configuration) {
  qvr::URLSessionOptions options;
  options.idleTimeoutSeconds = kEndpointTimeoutSeconds;
  options.requestTimeoutSeconds = kEndpointTimeoutSeconds;
  options.certificateAuthorityFile = configuration.endpoints.certificateAuthorityFile;
  return qvr::makeURLSession(options);
}

// The servers take their time while everything else is looked at.
EndpointRequests startRequests(const Configuration& configuration) {
  if (certificateAuthorityProblem(configuration)) return {};
  return EndpointRequests(endpointHosts(configuration), makeEndpointSession(configuration),
                          qvr::makeSystemClock());
}

Checks checkServers(const Configuration& configuration, const EndpointRequests& requests) {
  const EndpointAnswers answers = requests.wait();
  Checks checks = checkEndpoints(answers);
  if (const auto failure = certificateAuthorityProblem(configuration))
    checks.push_back(Check::problem("TLS", failure->sentence, "Correct " + configuration.path));
  checks.push_back(checkClock(answers));
  return checks;
}

Checks checkWith(const Configuration& configuration) {
  keepSecret(configuration.google.clientSecret);
  const EndpointRequests requests = startRequests(configuration);
  const DesktopSession desktop = currentDesktopSession();
  Checks checks = {checkRegistrations(configuration)};
  append(checks, checkRedirectHandlers(configuration, desktop));
  checks.push_back(checkBrowser(desktop));
  checks.push_back(checkKeychain(configuration, keychainSources()));
  checks.push_back(checkRuntimeFolder(runtimeFolder()));
  checks.push_back(checkSessionBus(busOptions()));
  append(checks, checkServers(configuration, requests));
  append(checks, checkFileModes(configuration));
  return checks;
}

Checks checkWithout() {
  const auto unchecked = [](const char* name) {
    return Check::unchecked(name, "it needs the configuration.", "Mend the configuration first.");
  };
  Checks checks = {unchecked("registrations"), unchecked("redirect handler")};
  checks.push_back(checkBrowser(currentDesktopSession()));
  checks.push_back(unchecked("keychain"));
  checks.push_back(checkRuntimeFolder(runtimeFolder()));
  checks.push_back(checkSessionBus(busOptions()));
  append(checks, {unchecked("TLS"), unchecked("clock"), unchecked("file modes")});
  return checks;
}

// Without the warning about the file's mode, which has a check of its own.
std::variant<Configuration, Failure> readWhatItSays(const std::string& path) {
  mode_t mode = 0;
  const auto text = readConfigurationText(path, &mode);
  if (const auto* failure = std::get_if<Failure>(&text)) return *failure;
  return parseConfiguration(std::get<std::string>(text), path);
}

Checks checkAll(const DoctorOptions& options) {
  auto result = readWhatItSays(options.configurationPath);
  Checks checks = checkConfiguration(result, options.configurationPath);
  auto* const configuration = std::get_if<Configuration>(&result);
  if (configuration != nullptr)
    configuration->keychain.passphraseDescriptor = options.passphraseDescriptor;
  append(checks, configuration != nullptr ? checkWith(*configuration) : checkWithout());
  return checks;
}

}  // namespace

int doctor(const DoctorOptions& options) {
  const Checks checks = checkAll(options);
  if (!writeOut(options.asJSON ? jsonOf(checks) : textOf(checks)))
    return report(cannotWriteOutput());
  return std::any_of(checks.begin(), checks.end(), isProblem) ? kFailed : kDone;
}

}  // namespace host
