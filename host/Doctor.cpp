// qvr-oauth2 doctor: everything that signing in needs, looked at before somebody needs it.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <variant>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/Colour.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/DoctorChecks.h"
#include "host/DoctorEndpoints.h"
#include "host/DoctorPrinting.h"
#include "host/Keychains.h"
#include "host/NarratedConfiguration.h"
#include "host/NarratedKeychain.h"
#include "host/NarratedSession.h"
#include "host/Paths.h"
#include "host/Secrets.h"
#include "host/Setup.h"
#include "host/Steps.h"

namespace host {
namespace {

// For the session bus and the keyring to answer a call. A slow one is no use to a sign-in either.
constexpr double kBusTimeoutSeconds = 2;
// For the user to answer a keyring that asks.
constexpr double kPromptTimeoutSeconds = 20;

Colour colourOf(Check::State state) {
  switch (state) {
    case Check::State::kOk:
      return Colour::kGreen;
    case Check::State::kWarning:
      return Colour::kYellow;
    case Check::State::kProblem:
      break;
  }
  return Colour::kRed;
}

// The text of a check begins with the word for its state.
std::string withColouredState(const Check& check, const std::string& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  return coloured(colourOf(check.state), text.substr(0, end), STDOUT_FILENO) + text.substr(end);
}

// What has been found. As text it is written at once: the keychain may keep everybody waiting.
class Findings {
 public:
  explicit Findings(bool asJSON) : asJSON_(asJSON) {}

  void add(Check check) {
    checks_.push_back(std::move(check));
    if (!asJSON_) write(withColouredState(checks_.back(), textOf({checks_.back()})));
  }
  void add(const Checks& checks) {
    for (const Check& check : checks)
      add(check);
  }

  // Writes what has not been written yet. Returns an ExitStatus.
  int finish() {
    if (asJSON_) write(jsonOf(checks_));
    if (!isWritten_) return report(cannotWriteOutput());
    return std::any_of(checks_.begin(), checks_.end(), isProblem) ? kFailed : kDone;
  }

 private:
  void write(const std::string& text) { isWritten_ = isWritten_ && writeOut(text); }

  const bool asJSON_;
  bool isWritten_ = true;
  Checks checks_;
};

KeychainSources keychainSources() {
  qvr::SecretServiceOptions options;
  options.callTimeoutSeconds = secondsLeft(kBusTimeoutSeconds);
  options.mayPrompt = false;  // to be unlocked; some ask before they store or remove an item
  options.promptTimeoutSeconds = secondsLeft(kPromptTimeoutSeconds);
  options.promptIsShown = [seconds = std::lround(options.promptTimeoutSeconds)] {
    say("The desktop's keyring asks a question: allow the item that doctor stores as a trial, and "
        "its removal. Waiting up to " +
        std::to_string(seconds) + " s for that.");
  };
  return {.examineSecretService = [options] { return qvr::examineSecretService(options); },
          .makeSecretService =
              [options] { return narratedIfShown(qvr::makeSecretServiceKeychain(options)); },
          .makeFiles = [](const auto& keychain) { return makeKeychain(kEncryptedFile, keychain); }};
}

// A name of its own: that of a sign-in which waits is not touched.
qvr::URLReceiverOptions busOptions() {
  return {.busName = "org.qvroauth2.doctor",
          .busAddress = "",
          .timeoutSeconds = secondsLeft(kBusTimeoutSeconds)};
}

qvr::Ref<qvr::URLSession> makeEndpointSession(const Configuration& configuration) {
  qvr::URLSessionOptions options;
  options.idleTimeoutSeconds = kEndpointTimeoutSeconds;
  options.requestTimeoutSeconds = secondsLeft(kEndpointTimeoutSeconds);
  options.certificateAuthorityFile = configuration.endpoints.certificateAuthorityFile;
  return narratedIfShown(qvr::makeURLSession(options));
}

// The servers take their time while everything else is looked at.
EndpointRequests startRequests(const Configuration& configuration) {
  if (certificateAuthorityProblem(configuration)) return {};
  return EndpointRequests(endpointHosts(configuration), makeEndpointSession(configuration),
                          qvr::makeSystemClock());
}

Checks checkServers(const Configuration& configuration, const EndpointRequests& requests) {
  const bool isRegistered = !endpointHosts(configuration).empty();
  const EndpointAnswers answers = requests.wait();
  Checks checks = checkEndpoints(answers);
  if (const auto failure = certificateAuthorityProblem(configuration))
    checks.push_back(Check::problem("TLS", failure->sentence, "Correct " + configuration.path));
  else if (!isRegistered)
    checks.push_back(needsRegistration("TLS"));
  checks.push_back(isRegistered ? checkClock(answers) : needsRegistration("clock"));
  return checks;
}

void checkWith(const Configuration& configuration, Findings& findings) {
  keepSecret(configuration.google.clientSecret);
  step(narratedConfiguration(configuration));
  const EndpointRequests requests = startRequests(configuration);
  const DesktopSession desktop = currentDesktopSession();
  findings.add(checkRegistrations(configuration));
  findings.add(checkRedirectHandlers(configuration, desktop));
  findings.add(checkBrowser(desktop));
  findings.add(checkKeychain(configuration, keychainSources()));
  findings.add(checkRuntimeFolder(runtimeFolder()));
  findings.add(checkSessionBus(busOptions()));
  findings.add(checkServers(configuration, requests));
  findings.add(checkFileModes(configuration));
}

void checkWithout(Findings& findings) {
  const auto unchecked = [](const char* name) {
    return Check::unchecked(name, "it needs the configuration.", "Mend the configuration first.");
  };
  findings.add({unchecked("registrations"), unchecked("redirect handler")});
  findings.add(checkBrowser(currentDesktopSession()));
  findings.add(unchecked("keychain"));
  findings.add(checkRuntimeFolder(runtimeFolder()));
  findings.add(checkSessionBus(busOptions()));
  findings.add({unchecked("TLS"), unchecked("clock"), unchecked("file modes")});
}

// Without the warning about the file's mode, which has a check of its own.
std::variant<Configuration, Failure> readWhatItSays(const std::string& path) {
  mode_t mode = 0;
  const auto text = readConfigurationText(path, &mode);
  if (const auto* failure = std::get_if<Failure>(&text)) return *failure;
  return parseConfiguration(std::get<std::string>(text), path);
}

}  // namespace

int doctor(const DoctorOptions& options) {
  Findings findings(options.asJSON);
  auto result = readWhatItSays(options.configurationPath);
  findings.add(checkConfiguration(result, options.configurationPath));
  if (auto* const configuration = std::get_if<Configuration>(&result)) {
    configuration->keychain.passphraseDescriptor = options.passphraseDescriptor;
    checkWith(*configuration, findings);
  } else {
    checkWithout(findings);
  }
  return findings.finish();
}

}  // namespace host
