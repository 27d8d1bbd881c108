// `doctor` on the keychain: which one it is, and whether it keeps what it is given.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/DoctorChecks.h"
#include "host/KeychainTrial.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Keychain = Configuration::Keychain;
using SecretService = qvr::SecretServiceState;

constexpr const char* kName = "keychain";
// The result of a trial of a keychain that is called `what`.
Check checkTrial(const std::string& what, std::string_view kind, qvr::KeychainItems& keychain) {
  if (const auto failure = keychainProblem(keychain, kind)) {
    const std::string other = kind == kSecretService ? "file" : "secret-service";
    return Check::problem(
        kName, what + ": " + failure->sentence,
        "Mend that, or use the other keychain: `qvr-oauth2 keychain move " + other + "`");
  }
  return Check::ok(kName, what + ": an item was stored, read back and removed.");
}

// A folder that is removed with all it holds.
class ThrowAwayFolder {
 public:
  // Below the folder, or the nearest one above it that is there.
  explicit ThrowAwayFolder(fs::path folder) {
    std::error_code error;
    while (!fs::exists(folder, error) && folder.has_relative_path())
      folder = folder.parent_path();
    path_ = folder / "qvr-oauth2-doctor.XXXXXX";
    if (mkdtemp(path_.data()) != nullptr) return;
    problem_ = std::strerror(errno);
    path_.clear();
  }
  ~ThrowAwayFolder() {
    std::error_code error;
    if (isThere()) fs::remove_all(path_, error);
  }
  ThrowAwayFolder(const ThrowAwayFolder&) = delete;
  ThrowAwayFolder& operator=(const ThrowAwayFolder&) = delete;

  bool isThere() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  const std::string& problem() const { return problem_; }  // why it is not there

 private:
  std::string path_;
  std::string problem_;
};

// The first item makes the key, the folders and more, which would stay. So a keychain that has none
// is tried in a copy beside its place: what matters there is whether the place can be written.
Check checkNewFileKeychain(const std::string& what, const Keychain& keychain) {
  const ThrowAwayFolder folder(keychain.directory);
  if (!folder.isThere()) {
    return Check::problem(
        kName,
        what + ": the folder " + keychain.directory + " cannot be made (" + folder.problem() + ").",
        "Check the permissions of the folders above it, or choose another place "
        "under [keychain] in the configuration.");
  }
  const auto trial =
      qvr::makeEncryptedFileKeychain({folder.path() + "/items", folder.path() + "/key", {}});
  return checkTrial(what + " (empty so far)", kEncryptedFile, *trial);
}

Check noPassphrase(const Failure& failure, const Keychain& keychain) {
  if (!keychain.passphraseCommand.empty()) {
    return Check::problem(kName, failure.sentence,
                          "Correct passphrase_command under [keychain] in the configuration.");
  }
  return Check::unchecked(kName, "it is sealed with a passphrase. " + failure.sentence,
                          "Run `qvr-oauth2 doctor` on a terminal, or give it the passphrase with "
                          "--passphrase-fd.");
}

Check checkFileKeychain(const std::string& what, const Keychain& keychain,
                        const KeychainSources& sources) {
  if (!isFileKeychainInUse(keychain)) return checkNewFileKeychain(what, keychain);
  const auto files = sources.makeFiles(keychain);
  if (const auto* failure = std::get_if<Failure>(&files)) return noPassphrase(*failure, keychain);
  return checkTrial(what, kEncryptedFile, *std::get<qvr::Ref<qvr::KeychainItems>>(files));
}

Check checkSecretService(const std::string& what, const KeychainSources& sources) {
  const SecretService state = sources.examineSecretService();
  switch (state.kind) {
    case SecretService::Kind::kReady:
      return checkTrial(what, kSecretService, *sources.makeSecretService());
    case SecretService::Kind::kLocked:
      return Check::warning(kName, what + " cannot be tried while it is locked. " + state.reason,
                            "Unlock it in your desktop's password manager, or when sign-in asks.");
    case SecretService::Kind::kAbsent:
      break;
  }
  return Check::problem(kName, what + " cannot be used. " + state.reason,
                        "Start the desktop's keyring (GNOME Keyring, KWallet or KeePassXC), or "
                        "keep tokens in files: `qvr-oauth2 keychain move file`");
}

}  // namespace

Check checkKeychain(const Configuration& configuration, const KeychainSources& sources) {
  const Keychain& keychain = configuration.keychain;
  const bool isChosen = !keychain.kind.empty();
  const std::string_view kind =
      isChosen ? keychain.kind : keychainToChoose(keychain, sources.examineSecretService);
  const std::string what =
      (isChosen ? "Chosen: " : "Not chosen yet; would be: ") + std::string(keychainName(kind));
  if (kind == kSecretService) return checkSecretService(what, sources);
  return checkFileKeychain(what + " in " + keychain.directory, keychain, sources);
}

}  // namespace host
