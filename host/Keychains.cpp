#include "host/Keychains.h"

#include <string>
#include <utility>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/KeychainChoice.h"
#include "host/NarratedKeychain.h"
#include "host/Passphrase.h"
#include "host/Secrets.h"
#include "host/Steps.h"

namespace host {
namespace {

// Within the command's own time, so far as it is known now.
qvr::SecretServiceOptions keyringOptions() {
  qvr::SecretServiceOptions options;
  options.callTimeoutSeconds = secondsLeft(options.callTimeoutSeconds);
  options.promptTimeoutSeconds = secondsLeft(options.promptTimeoutSeconds);
  return options;
}

qvr::Ref<qvr::KeychainItems> makeKeyring() {
  qvr::SecretServiceOptions options = keyringOptions();
  const auto seconds = std::to_string(static_cast<int>(options.promptTimeoutSeconds));
  options.promptIsShown = [seconds] {
    say("The desktop's keyring asks you something, most likely to be unlocked; waiting up to " +
        seconds + " s for the answer.");
  };
  return qvr::makeSecretServiceKeychain(std::move(options));
}

KeychainOrFailure makeFiles(const Configuration::Keychain& keychain) {
  qvr::EncryptedFileKeychainOptions options;
  options.directory = keychain.directory;
  options.keyFile = keychain.keyFile;
  options.lockTimeoutSeconds = secondsLeft(options.lockTimeoutSeconds);
  if (keychain.protection == "passphrase") {
    auto passphrase =
        keychain.passphraseDescriptor >= 0
            ? readPassphrase(keychain.passphraseDescriptor)
            : obtainPassphrase(keychain.passphraseCommand, !isFileKeychainInUse(keychain));
    if (auto* failure = std::get_if<Failure>(&passphrase)) return *failure;
    options.passphrase = std::get<std::string>(std::move(passphrase));
    keepSecret(*options.passphrase);
  }
  return qvr::makeEncryptedFileKeychain(std::move(options));
}

std::string placeOf(std::string_view kind, const Configuration::Keychain& keychain) {
  if (kind == kSecretService) return std::string(keychainName(kind));
  const bool hasPassphrase = keychain.protection == "passphrase";
  return std::string(keychainName(kind)) + " in " + keychain.directory + ", sealed with " +
         (hasPassphrase ? "a passphrase" : "the key in " + keychain.keyFile);
}

}  // namespace

KeychainOrFailure makeKeychain(std::string_view kind, const Configuration::Keychain& keychain) {
  step("keychain: " + placeOf(kind, keychain));
  KeychainOrFailure items = kind == kSecretService ? makeKeyring() : makeFiles(keychain);
  if (auto* const made = std::get_if<qvr::Ref<qvr::KeychainItems>>(&items))
    return narratedIfShown(std::move(*made));
  return items;
}

qvr::SecretServiceState examineKeyring() {
  const qvr::SecretServiceState state = qvr::examineSecretService(keyringOptions());
  const bool isThere = state.kind != qvr::SecretServiceState::Kind::kAbsent;
  step(std::string("the desktop's keyring is ") + (isThere ? "there" : "not there") +
       (state.reason.empty() ? "" : ": " + state.reason));
  return state;
}

std::string_view keychainName(std::string_view kind) {
  return kind == kSecretService ? "the desktop's keyring" : "the encrypted files";
}

}  // namespace host
