#include "host/AccountLock.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "host/Deadline.h"
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

constexpr int kMaximumAttempts = 10;

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

// The path of the lock file, in a folder that was made for it.
std::variant<std::string, Failure> lockPath(const Account& account) {
  const std::string folder = runtimeFolder();
  if (auto failure = makePrivateFolder(folder)) return *failure;
  return folder + "/" + lockName(account);
}

}  // namespace

AccountLock::AccountLock(FileLock lock) : lock_(std::move(lock)) {}

std::optional<Failure> AccountLock::problem(const Account& account) {
  const auto path = lockPath(account);
  if (const auto* failure = std::get_if<Failure>(&path)) return *failure;
  if (openLockFile(std::get<std::string>(path))) return std::nullopt;
  return cannotLock(std::get<std::string>(path));
}

// The folder of a session may be cleared while one waits. Who finds that time and again goes on
// with the lock there is.
std::variant<AccountLock, Failure> AccountLock::acquire(const Account& account) {
  const TerminationAllowed allowed;
  const auto end = deadlineAfter(kDeadline);
  for (int attempt = 1;; ++attempt) {
    auto path = lockPath(account);
    if (auto* failure = std::get_if<Failure>(&path)) return *failure;
    const auto& name = std::get<std::string>(path);
    Descriptor file = openLockFile(name);
    if (!file) return cannotLock(name);
    step("waiting for the account's lock " + name);
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    auto lock = FileLock::acquire(std::move(file), FileLock::Kind::kExclusive, left);
    if (!lock) return busy(account);
    if (!lock->isAt(name) && attempt < kMaximumAttempts) continue;
    step("the account's lock was taken");
    return AccountLock(std::move(*lock));
  }
}

}  // namespace host
