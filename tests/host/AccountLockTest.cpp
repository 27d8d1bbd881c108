// The lock that keeps the commands of one account apart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <system_error>
#include <thread>

#include "host/AccountLock.h"
#include "host/HashedName.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/host/ScopedVariable.h"
#include "tests/support/ChildProcess.h"

namespace host_test {
namespace {

using host::AccountLock;

class AccountLockTest : public testing::Test {
 protected:
  static bool isTaken(const std::variant<AccountLock, host::Failure>& result) {
    return std::holds_alternative<AccountLock>(result);
  }

  std::string lockFolder() const { return folder_.file("qvr-oauth2"); }
  std::string lockFile() const {
    return lockFolder() + "/" + host::hashedName("Google\nuser@example.org") + ".lock";
  }

  // Waits until this process has the file open twice: by who has the lock and who waits for it.
  static bool isOpenTwice(const std::string& path) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
      int count = 0;
      for (int descriptor = 0; descriptor < kDescriptors; ++descriptor) {
        std::error_code error;
        const auto link =
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
        if (!error && link == path) ++count;
      }
      if (count == 2) return true;
      std::this_thread::yield();
    }
    return false;
  }

  static constexpr int kDescriptors = 256;

  const support::TemporaryFolder folder_;
  const ScopedVariable runtimeFolder_{"XDG_RUNTIME_DIR", folder_.path()};
  const host::Account account_{"Google", "user@example.org"};
};

TEST_F(AccountLockTest, IsHadByOneAtATime) {
  const auto first = AccountLock::acquire(account_);
  ASSERT_TRUE(isTaken(first));
  const ScopedDeadline soon(0.05);
  const auto second = AccountLock::acquire(account_);
  ASSERT_FALSE(isTaken(second));
  EXPECT_EQ(std::get<host::Failure>(second).status, host::kTryAgainLater);
}

TEST_F(AccountLockTest, IsGivenBackWithItsObject) {
  EXPECT_TRUE(isTaken(AccountLock::acquire(account_)));
  EXPECT_TRUE(isTaken(AccountLock::acquire(account_)));
}

TEST_F(AccountLockTest, OfOneAccountLeavesTheOthersAlone) {
  const auto first = AccountLock::acquire(account_);
  EXPECT_TRUE(isTaken(AccountLock::acquire({"Microsoft", account_.username})));
  EXPECT_TRUE(isTaken(AccountLock::acquire({"Google", "other@example.org"})));
}

// Whoever waits for a file that has lost its name would be alone with its lock.
TEST_F(AccountLockTest, OfAFolderThatWasClearedMeanwhileIsTakenOnTheNewFile) {
  auto first = AccountLock::acquire(account_);
  ASSERT_TRUE(isTaken(first));
  auto waiting = std::async(std::launch::async, [this] { return AccountLock::acquire(account_); });
  ASSERT_TRUE(isOpenTwice(lockFile())) << "nobody came to wait";
  std::filesystem::rename(lockFolder(), folder_.file("cleared"));
  first = host::Failure{};  // gives it back
  ASSERT_TRUE(isTaken(waiting.get()));
  EXPECT_TRUE(std::filesystem::exists(lockFile()));
}

TEST_F(AccountLockTest, HasNoProblemWhileAnotherHasIt) {
  const auto first = AccountLock::acquire(account_);
  EXPECT_FALSE(AccountLock::problem(account_));
}

TEST_F(AccountLockTest, HasTheProblemOfItsFolder) {
  ASSERT_EQ(symlink("/tmp", lockFolder().c_str()), 0);
  const auto failure = AccountLock::problem(account_);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, host::kFailed);
  EXPECT_THAT(failure->sentence, testing::HasSubstr(lockFolder()));
}

TEST_F(AccountLockTest, HasTheProblemOfItsFile) {
  ASSERT_EQ(mkdir(lockFolder().c_str(), 0700), 0);
  ASSERT_EQ(symlink("elsewhere", lockFile().c_str()), 0);
  const auto failure = AccountLock::problem(account_);
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->sentence, testing::HasSubstr(lockFile()));
}

}  // namespace
}  // namespace host_test
