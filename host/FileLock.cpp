#include "host/FileLock.h"

#include <sys/file.h>

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

FileLock::FileLock(Descriptor file) : file_(std::move(file)) {}

std::optional<FileLock> FileLock::acquire(Descriptor file, Kind kind, milliseconds deadline) {
  const auto end = Clock::now() + timeLeft(deadline);
  for (milliseconds pause = kShortestPause;; pause = std::min(2 * pause, kLongestPause)) {
    if (tryLock(file.number(), kind)) return FileLock(std::move(file));
    if (Clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(pause);
  }
}

}  // namespace host
