// The lock of a configuration file: every command that works on the keychain holds a share of it,
// so that the keychain is not exchanged under a token that is just being refreshed and stored.
//
// Commands take it before they read where the keychain is. It lies on a file of its own beside the
// configuration, which is replaced when it is written, and stays there: a lock on a file that has
// lost its name would keep nobody out. Where the folder is read-only, so that nothing in it is ever
// replaced, it lies on the configuration itself.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <variant>

#include "host/Failure.h"
#include "host/FileLock.h"

namespace host {

class ConfigurationLock {
 public:
  // Shared to work on the keychain; exclusive to choose or to exchange it.
  using Kind = FileLock::Kind;

  // Waits until no other process holds what contradicts it; fails with kTryAgainLater at the
  // deadline, and with kFailed when the file of the lock cannot be opened. The configuration need
  // not be there yet, but its folder must.
  static std::variant<ConfigurationLock, Failure> acquire(const std::string& path, Kind kind,
                                                          std::chrono::milliseconds deadline);

  // Holds nothing.
  ConfigurationLock() = default;

 private:
  explicit ConfigurationLock(FileLock lock) : lock_(std::move(lock)) {}

  FileLock lock_;
};

}  // namespace host
