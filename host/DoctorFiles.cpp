// `doctor` on who may read and write the command's files.
#include <sys/stat.h>
#include <unistd.h>

#include "host/DoctorChecks.h"
#include "host/Messages.h"
#include "host/Paths.h"

namespace host {
namespace {

constexpr const char* kName = "file modes";
constexpr mode_t kAccessOfOthers = 077;
constexpr mode_t kWritingOfOthers = 022;

std::string command(const std::string& words, const std::string& path) {
  return "`" + words + " " + shellQuoted(path) + "`";
}

// What is wrong with a file or folder that is there, where `forbidden` must not be set in its mode.
void checkMode(const std::string& path, mode_t forbidden, const char* remedy, Checks& checks) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return;
  if (status.st_uid != geteuid() && status.st_uid != 0) {
    checks.push_back(Check::problem(kName, path + " belongs to another user.",
                                    "Make it yours: " + command("sudo chown \"$USER\"", path)));
  } else if ((status.st_mode & forbidden) != 0) {
    const bool mayWrite = (status.st_mode & kWritingOfOthers) != 0;
    checks.push_back(Check::problem(
        kName, "Other users can " + std::string(mayWrite ? "change " : "read ") + path + ".",
        command(remedy, path)));
  }
}

// Whether others can put another file in the place of one in the folder; where the sticky bit is
// set, as in /tmp, they cannot.
void checkFolderAbove(const std::string& path, Checks& checks) {
  struct stat status = {};
  const std::string folder = parentFolder(path);
  if (stat(folder.c_str(), &status) == 0 && (status.st_mode & S_ISVTX) == 0)
    checkMode(folder, kWritingOfOthers, "chmod go-w", checks);
}

void checkFileKeychain(const Configuration::Keychain& keychain, Checks& checks) {
  if (auto check = checkPrivateFolder(kName, keychain.directory)) checks.push_back(*check);
  if (keychain.protection != "key-file") return;
  if (auto check = checkPrivateFolder(kName, parentFolder(keychain.keyFile)))
    checks.push_back(*check);
  checkMode(keychain.keyFile, kAccessOfOthers, "chmod 600", checks);
}

}  // namespace

std::optional<Check> checkPrivateFolder(const std::string& name, const std::string& path) {
  const auto failure = privateFolderProblem(path);
  if (!failure) return std::nullopt;
  const std::string otherwise = ", or choose another place under [keychain] in the configuration.";
  struct stat status = {};
  const bool isOwnFolder =
      lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
  if (!isOwnFolder) return Check::problem(name, failure->sentence, "Do that" + otherwise);
  return Check::problem(name, "The folder " + path + " is open to other users.",
                        command("chmod 700", path) + otherwise);
}

Checks checkFileModes(const Configuration& configuration) {
  Checks checks;
  const bool hasSecret = !configuration.google.clientSecret.empty();
  // Who can change the configuration can send the tokens elsewhere and have commands run.
  checkMode(configuration.path, hasSecret ? kAccessOfOthers : kWritingOfOthers, "chmod 600",
            checks);
  checkFolderAbove(configuration.path, checks);
  if (configuration.keychain.kind != kSecretService)
    checkFileKeychain(configuration.keychain, checks);
  if (checks.empty())
    checks.push_back(Check::ok(kName, "The command's files are yours, and closed to others."));
  return checks;
}

}  // namespace host
