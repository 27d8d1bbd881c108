// Keeps the commands of one account apart, in all processes of the user: while one of them
// exchanges the account's tokens, or stores or removes them, nobody else does. Whoever gets the
// lock reads the record again, since another may have replaced or removed it meanwhile.
//
// It lies on a file of its own for each account in the runtime folder, which stays there.
#pragma once

#include <optional>
#include <variant>

#include "host/Account.h"
#include "host/Failure.h"
#include "host/FileLock.h"

namespace host {

class AccountLock {
 public:
  // Waits until no other process has the lock, and lets the signals that ask the command to end do
  // so meanwhile. Fails with kTryAgainLater at the deadline, and with kFailed when there is no
  // private folder for the lock.
  static std::variant<AccountLock, Failure> acquire(const Account& account);

  // Why acquire() would fail whoever has the lock: for work that must not be begun in vain.
  static std::optional<Failure> problem(const Account& account);

 private:
  explicit AccountLock(FileLock lock);

  FileLock lock_;
};

}  // namespace host
