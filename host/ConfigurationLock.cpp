#include "host/ConfigurationLock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/FileWriting.h"
#include "host/Paths.h"

namespace host {
namespace {

bool canBeChanged(const std::string& folder) {
  return faccessat(AT_FDCWD, folder.c_str(), W_OK, AT_EACCESS) == 0 ||
         (errno != EACCES && errno != EROFS);
}

// Never the configuration itself where that can be replaced: whoever opens the new file has nothing
// to do with a lock on the old one.
Descriptor openFile(const std::string& path) {
  const std::string file = linkTarget(path);
  Descriptor lock = openLockFile(file + ".lock");
  if (lock || canBeChanged(parentFolder(file))) return lock;
  return Descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

Failure cannotLock(const std::string& path) {
  const std::string reason = std::strerror(errno);
  return {kFailed, "The configuration " + path + " cannot be locked (" + reason + "): check " +
                       linkTarget(path) + ".lock and the permissions of its folder."};
}

Failure busy(ConfigurationLock::Kind kind) {
  return {kTryAgainLater,
          kind == ConfigurationLock::Kind::kShared
              ? "Another qvr-oauth2 command is moving the tokens to another keychain: try again "
                "when it is done."
              : "Another qvr-oauth2 command is at work, perhaps a sign-in that waits for its "
                "browser: try again when it is done."};
}

}  // namespace

std::variant<ConfigurationLock, Failure> ConfigurationLock::acquire(
    const std::string& path, Kind kind, std::chrono::milliseconds deadline) {
  Descriptor file = openFile(path);
  if (!file) return cannotLock(path);
  auto lock = FileLock::acquire(std::move(file), kind, deadline);
  if (!lock) return busy(kind);
  return ConfigurationLock(std::move(*lock));
}

}  // namespace host
