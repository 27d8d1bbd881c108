#include "host/Paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace host {
namespace {

constexpr const char* kName = "/qvr-oauth2";

// An absolute folder that the environment names.
std::optional<std::string> folderFromEnvironment(const char* variable) {
  const char* const value = std::getenv(variable);
  if (value == nullptr || value[0] != '/') return std::nullopt;
  return value;
}

std::optional<std::string> homeFolder() {
  if (auto home = folderFromEnvironment("HOME")) return home;
  const struct passwd* const user = getpwuid(getuid());
  if (user == nullptr || user->pw_dir == nullptr || user->pw_dir[0] != '/') return std::nullopt;
  return user->pw_dir;
}

std::optional<std::string> userFolder(const char* variable, const char* belowHome) {
  if (auto folder = folderFromEnvironment(variable)) return *folder + kName;
  if (auto home = homeFolder()) return *home + belowHome + kName;
  return std::nullopt;
}

Failure cannotMake(const std::string& path) {
  return {kFailed, "The folder " + path + " cannot be made (" + std::strerror(errno) +
                       "): check the permissions of the folders above it."};
}

}  // namespace

std::optional<std::string> configurationFolder() {
  return userFolder("XDG_CONFIG_HOME", "/.config");
}

std::optional<std::string> dataFolder() {
  return userFolder("XDG_DATA_HOME", "/.local/share");
}

std::string runtimeFolder() {
  if (auto folder = folderFromEnvironment("XDG_RUNTIME_DIR")) return *folder + kName;
  const std::string user = std::to_string(getuid());
  const std::string sessions = "/run/user/" + user;
  const bool isThere = access(sessions.c_str(), F_OK) == 0;
  if (isThere && !privateFolderProblem(sessions)) return sessions + kName;
  return std::string("/tmp") + kName + "-" + user;
}

std::optional<Failure> makeFolder(const std::string& path) {
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0 && mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
      return cannotMake(folder);
    }
    if (end == std::string::npos) return std::nullopt;
  }
}

std::optional<Failure> makePrivateFolder(const std::string& path) {
  if (auto failure = makeFolder(path)) return failure;
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return cannotMake(path);
  return privateFolderProblem(path);
}

std::optional<Failure> privateFolderProblem(const std::string& path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return std::nullopt;
  const auto refused = [&path](const char* reason) {
    return Failure{kFailed, "The folder " + path + " " + reason};
  };
  if (!S_ISDIR(status.st_mode)) return refused("is not a folder: move what is there away.");
  if (status.st_uid != geteuid()) return refused("belongs to another user: remove it.");
  if ((status.st_mode & 077) != 0) {
    return refused("is open to other users: run `chmod 700` on it.");
  }
  return std::nullopt;
}

std::string resolved(const std::string& path, const std::string& folder) {
  return path.starts_with('/') ? path : folder + "/" + path;
}

std::string parentFolder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace host
