// A lock between processes. The other process is flock(1).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <future>

#include "host/FileLock.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/support/ChildProcess.h"

namespace host_test {
namespace {

using host::FileLock;
using std::chrono::milliseconds;

constexpr milliseconds kLong(30'000);

class FileLockTest : public testing::Test {
 protected:
  host::Descriptor openFile() const {
    return host::Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  }

  std::optional<FileLock> acquire(FileLock::Kind kind, milliseconds deadline) const {
    return FileLock::acquire(openFile(), kind, deadline);
  }

  // Holds the lock, which it alone has open, until it is ended or its input is.
  support::ChildProcess::Options holder(const std::string& kind) const {
    return {{"/usr/bin/flock", kind, "--close", path, "sh", "-c", "echo held; read line"}, {}};
  }

  const support::TemporaryFolder folder;
  const std::string path = folder.write("lock", "");
};

TEST_F(FileLockTest, KeepsAnotherProcessOutUntilItIsGivenBack) {
  support::ChildProcess other(holder("--exclusive"));
  ASSERT_TRUE(other.waitForOutput("held"));
  EXPECT_FALSE(acquire(FileLock::Kind::kExclusive, milliseconds(0)));
  EXPECT_FALSE(acquire(FileLock::Kind::kShared, milliseconds(20)));
  auto waiting =
      std::async(std::launch::async, [this] { return acquire(FileLock::Kind::kExclusive, kLong); });
  other.closeInput();
  EXPECT_TRUE(waiting.get());
}

TEST_F(FileLockTest, OfAKilledProcessIsFree) {
  support::ChildProcess other(holder("--exclusive"));
  ASSERT_TRUE(other.waitForOutput("held"));
  auto waiting =
      std::async(std::launch::async, [this] { return acquire(FileLock::Kind::kShared, kLong); });
  other.signal(SIGKILL);
  EXPECT_TRUE(waiting.get());
}

TEST_F(FileLockTest, IsSharedWithOthersThatShare) {
  support::ChildProcess other(holder("--shared"));
  ASSERT_TRUE(other.waitForOutput("held"));
  EXPECT_TRUE(acquire(FileLock::Kind::kShared, milliseconds(0)));
  EXPECT_FALSE(acquire(FileLock::Kind::kExclusive, milliseconds(0)));
}

TEST_F(FileLockTest, IsHeldAsLongAsItLives) {
  {
    const auto lock = acquire(FileLock::Kind::kExclusive, milliseconds(0));
    ASSERT_TRUE(lock);
    EXPECT_FALSE(acquire(FileLock::Kind::kShared, milliseconds(0)));
  }
  EXPECT_TRUE(acquire(FileLock::Kind::kExclusive, milliseconds(0)));
}

TEST_F(FileLockTest, IsNotWaitedForBeyondTheCommandsTime) {
  const auto lock = acquire(FileLock::Kind::kExclusive, milliseconds(0));
  ASSERT_TRUE(lock);
  const ScopedDeadline deadline(0.02);
  EXPECT_FALSE(acquire(FileLock::Kind::kExclusive, kLong));
  EXPECT_TRUE(deadline.endedSoon());
}

TEST_F(FileLockTest, IsTakenWhenItIsFreeHoweverLateItIs) {
  const ScopedDeadline deadline(-1);
  EXPECT_TRUE(acquire(FileLock::Kind::kExclusive, kLong));
}

TEST_F(FileLockTest, KeepsOutAProcessThatIsStartedMeanwhile) {
  const auto lock = acquire(FileLock::Kind::kExclusive, milliseconds(0));
  ASSERT_TRUE(lock);
  support::ChildProcess other({{"/usr/bin/flock", "--nonblock", "--shared", path, "true"}, {}});
  EXPECT_NE(other.wait(), 0);
}

}  // namespace
}  // namespace host_test
