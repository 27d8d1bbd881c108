#include "host/ConfigurationLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause(20);

// False while another process holds it.
bool tryLock(int file, ConfigurationLock::Kind kind) {
  const int operation = kind == ConfigurationLock::Kind::kShared ? LOCK_SH : LOCK_EX;
  int result = 0;
  do {
    result = flock(file, operation | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno != EWOULDBLOCK;
}

// False when the path has got another file since this one was opened: writers replace it.
bool isStillAt(const std::string& path, int file) {
  struct stat there = {};
  struct stat here = {};
  return stat(path.c_str(), &there) == 0 && fstat(file, &here) == 0 &&
         there.st_dev == here.st_dev && there.st_ino == here.st_ino;
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
  for (const auto end = Clock::now() + deadline;; std::this_thread::sleep_for(kPause)) {
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
      return Failure{
          kFailed, "The configuration " + path + " cannot be read (" + std::strerror(errno) + ")."};
    }
    if (tryLock(file.number(), kind) && isStillAt(path, file.number()))
      return ConfigurationLock(std::move(file));
    if (Clock::now() >= end) return busy(kind);
  }
}

}  // namespace host
