#include "host/AccountLock.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "host/HashedName.h"
#include "host/Paths.h"
#include "host/Signals.h"
#include "host/Steps.h"
#include "host/Wait.h"

namespace host {
namespace {

// Who has the lock sends a request, and reads and writes the keychain.
constexpr std::chrono::seconds kDeadline(static_cast<int>(kRequestDeadlineSeconds +
                                                          kKeychainDeadlineSeconds));

std::string lockName(const Account& account) {
  return hashedName(account.provider + "\n" + account.username) + ".lock";
}

Failure cannotLock(const std::string& path) {
  const std::string reason = std::strerror(errno);
  return {kFailed, "The lock file " + path + " cannot be opened (" + reason +
                       "): check the file, and the permissions of its folder."};
}

Failure busy(const Account& account) {
  return {kTryAgainLater, "Another qvr-oauth2 command is at work on the account " +
                              account.username + " at " + account.provider +
                              " and does not come to an end: try again later."};
}

}  // namespace

AccountLock::AccountLock(FileLock lock) : lock_(std::move(lock)) {}

std::variant<AccountLock, Failure> AccountLock::acquire(const Account& account) {
  const std::string folder = runtimeFolder();
  if (auto failure = makePrivateFolder(folder)) return *failure;
  const std::string path = folder + "/" + lockName(account);
  Descriptor file(
      open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  if (!file) return cannotLock(path);
  step("waiting for the account's lock " + path);
  const TerminationAllowed allowed;
  auto lock = FileLock::acquire(std::move(file), FileLock::Kind::kExclusive, kDeadline);
  if (!lock) return busy(account);
  step("the account's lock was taken");
  return AccountLock(std::move(*lock));
}

}  // namespace host
