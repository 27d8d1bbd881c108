// `doctor` on the keychain: which one it is, and whether it keeps what it is given.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/DoctorChecks.h"
#include "host/KeychainTrial.h"
#include "host/Paths.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Keychain = Configuration::Keychain;
using SecretService = qvr::SecretServiceState;

constexpr const char* kName = "keychain";

// A keychain that is being tried.
struct Trial {
  std::string what;  // how the sentences call it
  std::string_view kind;
  const std::string& configurationPath;
};

// How to do without a keychain whose tokens cannot be carried over.
std::string abandoning(const Trial& trial) {
  const std::string other(trial.kind == kSecretService ? kEncryptedFile : kSecretService);
  return "to do without what it holds, write kind = \"" + other + "\" under [keychain] in " +
         trial.configurationPath + " and sign in again.";
}

// Tokens can be moved from a keychain that can be read, whatever else is wrong with it.
std::string remedyFor(const Trial& trial, qvr::KeychainItems& keychain) {
  if (lookUpProblem(keychain, trial.kind)) return "Mend that; or, " + abandoning(trial);
  const std::string other = trial.kind == kSecretService ? "file" : "secret-service";
  return "Mend that, or use the other keychain: `qvr-oauth2 keychain move " + other + "`";
}

Check check(const Trial& trial, qvr::KeychainItems& keychain) {
  const std::string& what = trial.what;
  if (const auto failure = roundTripProblem(keychain, trial.kind))
    return Check::problem(kName, what + ": " + failure->sentence, remedyFor(trial, keychain));
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
// is tried in a copy beside its place: what matters there is whether the place can be written, and
// that the folders of its own that are there already are private.
Check checkNewFileKeychain(const Trial& trial, const Keychain& keychain) {
  if (auto problem = checkPrivateFolder(kName, keychain.directory)) return *problem;
  const bool hasKey = keychain.protection == "key-file";
  if (auto problem = checkPrivateFolder(kName, parentFolder(keychain.keyFile)); hasKey && problem)
    return *problem;
  const ThrowAwayFolder folder(keychain.directory);
  if (!folder.isThere()) {
    return Check::problem(kName,
                          trial.what + ": the folder " + keychain.directory + " cannot be made (" +
                              folder.problem() + ").",
                          "Check the permissions of the folders above it, or choose another place "
                          "under [keychain] in the configuration.");
  }
  const auto copy =
      qvr::makeEncryptedFileKeychain({folder.path() + "/items", folder.path() + "/key", {}});
  return check({trial.what + " (empty so far)", trial.kind, trial.configurationPath}, *copy);
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

Check checkFileKeychain(const Trial& trial, const Keychain& keychain,
                        const KeychainSources& sources) {
  if (!isFileKeychainInUse(keychain)) return checkNewFileKeychain(trial, keychain);
  const auto files = sources.makeFiles(keychain);
  if (const auto* failure = std::get_if<Failure>(&files)) return noPassphrase(*failure, keychain);
  return check(trial, *std::get<qvr::Ref<qvr::KeychainItems>>(files));
}

Check checkSecretService(const Trial& trial, const KeychainSources& sources) {
  const SecretService state = sources.examineSecretService();
  switch (state.kind) {
    case SecretService::Kind::kReady:
      return check(trial, *sources.makeSecretService());
    case SecretService::Kind::kLocked:
      return Check::warning(kName,
                            trial.what + " cannot be tried while it is locked. " + state.reason,
                            "Unlock it in your desktop's password manager, or when sign-in asks.");
    case SecretService::Kind::kAbsent:
      break;
  }
  return Check::problem(kName, trial.what + " cannot be used. " + state.reason,
                        "Start the desktop's keyring (GNOME Keyring, KWallet or KeePassXC); or, " +
                            abandoning(trial));
}

}  // namespace

Check checkKeychain(const Configuration& configuration, const KeychainSources& sources) {
  const Keychain& keychain = configuration.keychain;
  const bool isChosen = !keychain.kind.empty();
  const std::string_view kind =
      isChosen ? keychain.kind : keychainToChoose(keychain, sources.examineSecretService);
  const std::string what =
      (isChosen ? "Chosen: " : "Not chosen yet; would be: ") + std::string(keychainName(kind));
  if (kind == kSecretService) return checkSecretService({what, kind, configuration.path}, sources);
  return checkFileKeychain({what + " in " + keychain.directory, kind, configuration.path}, keychain,
                           sources);
}

}  // namespace host
