#include "host/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include "host/Deadline.h"

namespace host {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// A lock is mostly given back soon: who holds it reads or writes a file, or waits for a server.
constexpr milliseconds kShortestPause(1);
constexpr milliseconds kLongestPause(20);

// False while another process holds it.
bool tryLock(int file, FileLock::Kind kind) {
  const int operation = kind == FileLock::Kind::kShared ? LOCK_SH : LOCK_EX;
  int result = 0;
  do {
    result = flock(file, operation | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno != EWOULDBLOCK;
}

}  // namespace

Descriptor openLockFile(const std::string& path) {
  constexpr int kFlags = O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  Descriptor file(open(path.c_str(), O_RDWR | kFlags, 0600));
  if (file) return file;
  return Descriptor(open(path.c_str(), O_RDONLY | kFlags, 0600));
}

FileLock::FileLock(Descriptor file) : file_(std::move(file)) {}

std::optional<FileLock> FileLock::acquire(Descriptor file, Kind kind, milliseconds deadline) {
  const auto end = deadlineAfter(deadline);
  for (milliseconds pause = kShortestPause;; pause = std::min(2 * pause, kLongestPause)) {
    if (tryLock(file.number(), kind)) return FileLock(std::move(file));
    if (Clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(pause);
  }
}

bool FileLock::isAt(const std::string& path) const {
  struct stat own = {};
  struct stat named = {};
  return fstat(file_.number(), &own) == 0 && stat(path.c_str(), &named) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

}  // namespace host
