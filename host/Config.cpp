// qvr-oauth2 config: from nothing to a configuration, question by question on a terminal, as a
// commented template elsewhere.
#include <unistd.h>

#include <chrono>
#include <string>
#include <string_view>
#include <variant>

#include "host/Command.h"
#include "host/ConfigText.h"
#include "host/ConfigurationLock.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/FileWriting.h"
#include "host/KeychainChoice.h"
#include "host/Keychains.h"
#include "host/Passphrase.h"
#include "host/Paths.h"
#include "host/Steps.h"

namespace host {
namespace {

constexpr const char* kWelcome =
    "qvr-oauth2 signs in with a registration of your own at each provider. The answers go to a\n"
    "configuration file; Enter takes what stands in [brackets].\n\n";

constexpr std::string_view kAutomatic = "automatic";

constexpr std::chrono::milliseconds kLockDeadline(2'000);

constexpr const char* kNextStep =
    "\nNext, sign in: `qvr-oauth2 sign-in google USER` or `qvr-oauth2 sign-in microsoft USER`.\n";

// The user left before the last question.
struct Abandoned {};

struct Question {
  std::string_view text;
  std::string_view preset;  // taken for an empty answer
  std::string (*problem)(std::string_view answer);
  bool mayBeEmpty = false;
};

void show(const std::string& text) {
  if (!writeOut(text)) throw Abandoned();
}

std::string ask(const Question& question) {
  for (;;) {
    show(std::string(question.text) + " [" + std::string(question.preset) + "]: ");
    const auto line = readLine();
    if (!line) throw Abandoned();
    std::string answer = line->empty() ? std::string(question.preset) : *line;
    if (answer.empty() && question.mayBeEmpty) return answer;
    const std::string problem = question.problem(answer);
    if (problem.empty()) return answer;
    show("This " + problem + ".\n");
  }
}

std::string problemWithYesOrNo(std::string_view answer) {
  return answer == "yes" || answer == "no" ? "" : "must be \"yes\" or \"no\"";
}

std::string problemWithProtection(std::string_view answer) {
  return answer == "key-file" || answer == "passphrase" ? ""
                                                        : "must be \"key-file\" or \"passphrase\"";
}

std::string problemWithKeychain(std::string_view answer) {
  const bool isKnown = answer == kAutomatic || answer == kSecretService || answer == kEncryptedFile;
  return isKnown ? "" : "must be \"automatic\", \"secret-service\" or \"encrypted-file\"";
}

// Keeps the secret that is there when nothing is typed.
std::string askSecret(const std::string& preset) {
  for (;;) {
    auto answer = askHidden("Client secret, if Google gave one (not shown while you type): ");
    if (std::holds_alternative<Failure>(answer)) throw Abandoned();
    const std::string& secret = std::get<std::string>(answer);
    if (secret.empty()) return preset;
    const std::string problem = problemWithCredential(secret);
    if (problem.empty()) return secret;
    show("This " + problem + ".\n");
  }
}

void askForGoogle(Configuration& configuration) {
  Configuration::Google& google = configuration.google;
  show("\n" + googleInstructions(configuration.bundleIdentifier) + "\n");
  google.clientIdentifier = ask({"Google client ID, empty for no Google", google.clientIdentifier,
                                 problemWithCredential, true});
  if (google.clientIdentifier.empty()) return;
  const std::string suggestion =
      google.customURIScheme.empty()
          ? suggestedURIScheme(google.clientIdentifier, configuration.bundleIdentifier)
          : google.customURIScheme;
  google.customURIScheme = ask({"URI scheme", suggestion, problemWithURIScheme});
  google.clientSecret = askSecret(google.clientSecret);
  show("The redirect URI is " + googleRedirectURI(google.customURIScheme) + "\n");
}

void askForMicrosoft(Configuration& configuration) {
  show("\n" + microsoftInstructions(configuration.bundleIdentifier) + "\n");
  configuration.microsoft.applicationIdentifier =
      ask({"Microsoft application (client) ID, empty for no Microsoft",
           configuration.microsoft.applicationIdentifier, problemWithApplicationIdentifier, true});
}

// A keychain in which there may be tokens already is not changed here: `keychain move` takes them
// along.
void askForKeychain(Configuration::Keychain& keychain) {
  if (keychain.kind.empty()) {
    show(
        "\nTokens are kept in the desktop's keyring (secret-service) or in encrypted files of "
        "this\n"
        "command (encrypted-file); automatic takes the keyring where there is one.\n");
    const std::string kind = ask({"Keychain", kAutomatic, problemWithKeychain});
    if (kind != kAutomatic) keychain.kind = kind;
  } else {
    show("\nTokens stay in " + std::string(keychainName(keychain.kind)) +
         "; `qvr-oauth2 keychain move` changes that.\n");
  }
  if (keychain.kind == kSecretService) return;
  show(
      "\nEncrypted files are sealed with a key: in a file that only you can read (key-file), or "
      "made\nfrom a passphrase that is asked for at each use (passphrase).\n");
  keychain.protection = ask({"Protection", keychain.protection, problemWithProtection});
}

void askForAll(Configuration& configuration) {
  show(kWelcome);
  const std::string preset = configuration.bundleIdentifier.empty()
                                 ? std::string(kDefaultBundleIdentifier)
                                 : configuration.bundleIdentifier;
  configuration.bundleIdentifier =
      ask({"Your name for this app, in reverse domain form", preset, problemWithBundleIdentifier});
  askForGoogle(configuration);
  askForMicrosoft(configuration);
  askForKeychain(configuration.keychain);
}

// True when there is no file yet, or it may go.
bool mayReplace(const std::string& path) {
  if (access(path.c_str(), F_OK) != 0) return true;
  return ask({"There is a configuration already: " + path + "\nReplace it?", "no",
              problemWithYesOrNo}) == "yes";
}

// What the answers start from: the configuration that is there, if it can be read.
Configuration startingPoint(const std::string& path) {
  auto existing = readConfiguration(path);
  auto* const configuration = std::get_if<Configuration>(&existing);
  if (configuration == nullptr) return {};
  Configuration::Keychain& keychain = configuration->keychain;
  if (keychain.kind.empty() && isFileKeychainInUse(keychain)) keychain.kind = kEncryptedFile;
  return *configuration;
}

// Answering takes its time: a keychain that was chosen or changed meanwhile stays.
void keepChoice(const std::string& path, Configuration& configuration) {
  const auto now = readConfiguration(path);
  const auto* const existing = std::get_if<Configuration>(&now);
  if (existing != nullptr && !existing->keychain.kind.empty())
    configuration.keychain.kind = existing->keychain.kind;
}

// Answers that took their time are not thrown away because a sign-in waits for its browser.
std::variant<ConfigurationLock, Failure> lockToWrite(const std::string& path) {
  if (auto failure = makeFolder(parentFolder(linkTarget(path)))) return *failure;
  for (;;) {
    auto lock =
        ConfigurationLock::acquire(path, ConfigurationLock::Kind::kExclusive, kLockDeadline);
    const auto* const failure = std::get_if<Failure>(&lock);
    if (failure == nullptr || failure->status != kTryAgainLater) return lock;
    if (ask({failure->sentence + "\nTry again?", "yes", problemWithYesOrNo}) == "no") return lock;
  }
}

int askAndWrite(const std::string& path) {
  if (!mayReplace(path)) return report({kFailed, "Nothing was written."});
  Configuration configuration = startingPoint(path);
  askForAll(configuration);
  step("waiting for the lock of " + path);
  const auto lock = lockToWrite(path);
  if (const auto* failure = std::get_if<Failure>(&lock)) return report(*failure);
  keepChoice(path, configuration);
  const std::string text = configurationText(configuration);
  auto checked = parseConfiguration(text, path);
  if (auto* failure = std::get_if<Failure>(&checked)) return report(*failure);
  step("writing " + path + " (" + std::to_string(text.size()) + " bytes)");
  if (auto failure = replaceFile(path, text)) return report(*failure);
  show("\nWritten: " + path + "\n" + kNextStep);
  return kDone;
}

std::string commentedTemplate(const std::string& path) {
  Configuration configuration;
  configuration.bundleIdentifier = kDefaultBundleIdentifier;
  return asComment("The configuration of qvr-oauth2. Its place is " + path +
                   ",\nwith mode 0600. `qvr-oauth2 config` on a terminal asks for the values.\n\n" +
                   googleInstructions(configuration.bundleIdentifier) + "\n" +
                   microsoftInstructions(configuration.bundleIdentifier)) +
         "\n" + configurationText(configuration);
}

}  // namespace

int config(const std::string& configurationPath) {
  if (!isTerminal(STDIN_FILENO) || !isTerminal(STDOUT_FILENO)) {
    return writeOut(commentedTemplate(configurationPath)) ? kDone : report(cannotWriteOutput());
  }
  try {
    return askAndWrite(configurationPath);
  } catch (const Abandoned&) {
    if (isTimeLeft()) return report({kFailed, "Nothing was written."});
    return report({kTryAgainLater, "Nobody answered in time: nothing was written."});
  }
}

int showConfiguration(const Configuration& configuration) {
  const std::string text =
      asComment("What is in force, from " + configuration.path + " and defaults.") + "\n" +
      configurationText(configuration, true);
  return writeOut(text) ? kDone : report(cannotWriteOutput());
}

}  // namespace host
