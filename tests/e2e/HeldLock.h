// The lock of an account's commands, held by the test.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

namespace e2e {

class HeldLock {
 public:
  // `runtimeFolder` holds one lock file, since one account alone has signed in.
  explicit HeldLock(const std::string& runtimeFolder)
      : file_(open(lockFile(runtimeFolder).c_str(), O_RDONLY | O_CLOEXEC)) {
    if (flock(file_, LOCK_EX | LOCK_NB) == 0) return;
    close(file_);
    throw std::runtime_error("the lock is not free");
  }
  ~HeldLock() { release(); }
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;

  void release() {
    if (file_ >= 0) close(std::exchange(file_, -1));
  }

 private:
  static std::string lockFile(const std::string& folder) {
    std::string found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() != ".lock") continue;
      if (!found.empty()) throw std::runtime_error("there are several lock files");
      found = entry.path();
    }
    if (found.empty()) throw std::runtime_error("there is no lock file");
    return found;
  }

  int file_;
};

}  // namespace e2e
