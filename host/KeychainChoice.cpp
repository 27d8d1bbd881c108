#include "host/KeychainChoice.h"

#include <dirent.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "host/ConfigurationEdit.h"
#include "host/Console.h"
#include "host/Steps.h"

namespace host {
namespace {

using std::chrono::milliseconds;
using LockOrFailure = std::variant<ConfigurationLock, Failure>;

// Others may be moving many items, or answering a prompt of the keyring; or looking for one on a
// bus that does not answer. A sign-in that waits for its browser is not waited for.
constexpr milliseconds kShareDeadline(90'000);
constexpr milliseconds kChoiceDeadline(30'000);
constexpr milliseconds kExclusiveDeadline(2'000);

// Takes the kind that stands in the file now, if one does.
std::optional<Failure> readKind(Configuration& configuration) {
  auto now = readConfiguration(configuration.path);
  if (auto* failure = std::get_if<Failure>(&now)) return *failure;
  const std::string& kind = std::get<Configuration>(now).keychain.kind;
  if (!kind.empty()) configuration.keychain.kind = kind;
  return std::nullopt;
}

LockOrFailure lockAndRead(Configuration& configuration, ConfigurationLock::Kind kind) {
  const bool isShared = kind == ConfigurationLock::Kind::kShared;
  step("waiting for the lock of " + configuration.path + (isShared ? ", to share it" : ""));
  auto lock = ConfigurationLock::acquire(configuration.path, kind,
                                         isShared ? kShareDeadline : kExclusiveDeadline);
  if (std::holds_alternative<Failure>(lock)) return lock;
  step("the lock of the configuration was taken");
  if (auto failure = readKind(configuration)) return *failure;
  return lock;
}

std::string sentenceAbout(const Configuration& configuration, bool wasInUse, bool isWritten) {
  const std::string files = "encrypted files in " + configuration.keychain.directory;
  const std::string place = isWritten
                                ? ", as " + configuration.path + " now says; "
                                : "; this could not be written into " + configuration.path + "; ";
  if (configuration.keychain.kind == kSecretService)
    return "Tokens are kept in the desktop's keyring" + place +
           "`qvr-oauth2 keychain move file` changes that.";
  return (wasInUse ? "Tokens stay in " + files
                   : "There is no desktop keyring here, so tokens are kept in " + files) +
         place + "`qvr-oauth2 keychain move secret-service` changes that.";
}

Failure cannotRemember(const Configuration& configuration, const Failure& reason) {
  return {kFailed, "The desktop's keyring would be used, but this cannot be remembered: " +
                       reason.sentence + " Or write kind = \"" + std::string(kSecretService) +
                       "\" under [keychain] in " + configuration.path + " yourself."};
}

// Chooses, unless another process has done so meanwhile.
std::optional<Failure> choose(Configuration& configuration, const SecretServiceExaminer& examine) {
  const bool wasInUse = isFileKeychainInUse(configuration.keychain);
  auto lock = ConfigurationLock::acquire(configuration.path, ConfigurationLock::Kind::kExclusive,
                                         wasInUse ? milliseconds(0) : kChoiceDeadline);
  if (auto* failure = std::get_if<Failure>(&lock)) {
    if (!wasInUse) return *failure;
    configuration.keychain.kind = kEncryptedFile;  // and will be the next time too
    return std::nullopt;
  }
  if (auto failure = readKind(configuration)) return failure;
  if (!configuration.keychain.kind.empty()) return std::nullopt;
  step("no keychain has been chosen yet");
  const std::string kind(keychainToChoose(configuration.keychain, examine));
  std::optional<Failure> unwritten = writeKeychainKind(configuration.path, kind);
  if (unwritten && kind == kSecretService) return cannotRemember(configuration, *unwritten);
  configuration.keychain.kind = kind;
  if (!unwritten || !wasInUse) say(sentenceAbout(configuration, wasInUse, !unwritten));
  return std::nullopt;
}

}  // namespace

bool isFileKeychainInUse(const Configuration::Keychain& keychain) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(keychain.directory.c_str()), closedir);
  if (!folder) return errno != ENOENT;
  while (const dirent* const entry = readdir(folder.get())) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) return true;
  }
  return false;
}

std::string_view keychainToChoose(const Configuration::Keychain& keychain,
                                  const SecretServiceExaminer& examine) {
  if (isFileKeychainInUse(keychain)) return kEncryptedFile;
  const bool isThere = examine().kind != qvr::SecretServiceState::Kind::kAbsent;
  return isThere ? kSecretService : kEncryptedFile;
}

std::variant<ConfigurationLock, Failure> settleKeychain(Configuration& configuration,
                                                        const SecretServiceExaminer& examine,
                                                        ConfigurationLock::Kind kind) {
  configuration.keychain.kind.clear();
  {
    auto lock = lockAndRead(configuration, kind);
    if (std::holds_alternative<Failure>(lock) || !configuration.keychain.kind.empty()) return lock;
  }
  if (auto failure = choose(configuration, examine)) return *failure;
  // The lock of the choice kept everybody out, and is given back; a move may have come in between.
  return lockAndRead(configuration, kind);
}

}  // namespace host
