#include "host/Keychains.h"

#include <optional>
#include <string>
#include <utility>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/Console.h"
#include "host/KeychainChoice.h"
#include "host/Passphrase.h"
#include "host/Secrets.h"

namespace host {
namespace {

qvr::Ref<qvr::KeychainItems> makeKeyring() {
  qvr::SecretServiceOptions options;
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

}  // namespace

KeychainOrFailure makeKeychain(std::string_view kind, const Configuration::Keychain& keychain) {
  if (kind == kSecretService) return makeKeyring();
  return makeFiles(keychain);
}

std::string_view keychainName(std::string_view kind) {
  return kind == kSecretService ? "the desktop's keyring" : "the encrypted files";
}

}  // namespace host
