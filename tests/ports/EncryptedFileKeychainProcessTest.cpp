// Several processes on one store, and processes that are killed while they write.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <memory>
#include <random>

#include "tests/ports/helpers/FileKeychainTest.h"
#include "tests/ports/programs/WriterValues.h"

namespace ports_test {
namespace {

class EncryptedFileKeychainProcessTest : public FileKeychainTest {
 protected:
  // The writer is built beside this program.
  std::unique_ptr<support::ChildProcess> startWriter(const std::string& mode,
                                                     const std::string& argument) const {
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    support::ChildProcess::Options options;
    options.arguments = {self.parent_path() / "keychain_writer", mode, directory(), keyFile(),
                         argument};
    return std::make_unique<support::ChildProcess>(options);
  }

  // A writer that is killed at a random moment; false when it ended in another way.
  bool storeUntilKilled(std::mt19937& random, int longestMicroseconds) const {
    std::uniform_int_distribution<int> microseconds(0, longestMicroseconds);
    const auto writer = startWriter("store", std::to_string(microseconds(random)));
    return writer->wait() == 128 + SIGKILL;
  }
};

constexpr int kLongestMicroseconds = 8000;

TEST_F(EncryptedFileKeychainProcessTest, WriterKilledAtAnyMomentLeavesTheOldItemOrTheNewOne) {
  ASSERT_EQ(Item{*open()}.add(oldValue()), qvr::errSecSuccess);
  std::mt19937 random(std::random_device{}());
  int killedWhileWriting = 0;
  for (int kill = 0; kill < 220; ++kill) {
    ASSERT_TRUE(storeUntilKilled(random, kLongestMicroseconds));
    const std::string seen = Item{*open()}.text();
    ASSERT_TRUE(seen == oldValue() || seen == newValue()) << "after kill " << kill;
    ASSERT_EQ(namesEnding(directory(), ".item").size(), 1u);
    ASSERT_LE(leftovers(), 1u);
    killedWhileWriting += leftovers() == 1 ? 1 : 0;
  }
  EXPECT_GT(killedWhileWriting, 0);  // the moments did fall into writes
  RecordProperty("killedWhileWriting", killedWhileWriting);
  EXPECT_EQ(Item{*open()}.update("after"), qvr::errSecSuccess);
  EXPECT_EQ(leftovers(), 0u);
}

TEST_F(EncryptedFileKeychainProcessTest, WriterKilledWhileItMakesTheStoreLeavesOneThatWorks) {
  std::mt19937 random(std::random_device{}());
  for (int kill = 0; kill < 60; ++kill) {
    std::filesystem::remove_all(directory());
    std::filesystem::remove(keyFile());
    ASSERT_TRUE(storeUntilKilled(random, kLongestMicroseconds));
    const std::string seen = Item{*open()}.text();
    const bool isThere = seen == oldValue() || seen == newValue();
    ASSERT_TRUE(isThere || seen == "status -25300") << seen << " after kill " << kill;
    ASSERT_EQ(Item{*open()}.add("x"), isThere ? qvr::errSecDuplicateItem : qvr::errSecSuccess);
    ASSERT_EQ(std::filesystem::file_size(keyFile()), 32u);
  }
}

TEST_F(EncryptedFileKeychainProcessTest, OfManyProcessesThatAddOneItemExactlyOneDoes) {
  constexpr int kProcesses = 6;
  for (int round = 0; round < 5; ++round) {
    std::filesystem::remove_all(directory());
    std::filesystem::remove(keyFile());
    std::vector<std::unique_ptr<support::ChildProcess>> writers;
    for (int index = 0; index < kProcesses; ++index) {
      writers.push_back(startWriter("add", std::to_string(index)));
    }
    for (const auto& writer : writers)
      writer->closeInput();
    std::vector<std::string> statuses;
    for (const auto& writer : writers) {
      ASSERT_EQ(writer->wait(), 0);
      statuses.push_back(writer->output());
    }
    EXPECT_EQ(std::ranges::count(statuses, "0"), 1);
    EXPECT_EQ(std::ranges::count(statuses, "-25299"), kProcesses - 1);
    const auto winner = std::ranges::find(statuses, "0") - statuses.begin();
    EXPECT_EQ(Item{*open()}.text(), std::to_string(winner));
    EXPECT_EQ(namesEnding(directory(), ".item").size(), 1u);
  }
}

// Tells when a writer finds the lock taken.
class WatchedLock final : public qvr::FileCalls {
 public:
  int lock(int file, int operation) override {
    const int result = FileCalls::lock(file, operation);
    if (result != 0 && errno == EWOULDBLOCK) {
      found_.set_value();
      errno = EWOULDBLOCK;
    }
    return result;
  }
  std::future<void> foundTaken() { return found_.get_future(); }

 private:
  std::promise<void> found_;
};

// Another writer, in the middle of its work.
qvr::FileDescriptor takeLock(const std::string& directory) {
  qvr::FileDescriptor file(open((directory + "/.keychain-lock").c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(flock(file.get(), LOCK_EX), 0);
  return file;
}

TEST_F(EncryptedFileKeychainProcessTest, WriterWaitsForTheOneBeforeIt) {
  ASSERT_EQ(Item{*open()}.add("old"), qvr::errSecSuccess);
  std::optional<qvr::FileDescriptor> other = takeLock(directory());
  WatchedLock calls;
  std::future<void> isWaiting = calls.foundTaken();
  std::future<std::int32_t> update = std::async(std::launch::async, [&] {
    return Item{*open({kCheapPassphrase, std::chrono::minutes(1), &calls})}.update("new");
  });
  ASSERT_EQ(isWaiting.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(Item{*open()}.text(), "old");  // readers do not wait
  other.reset();
  ASSERT_EQ(update.get(), qvr::errSecSuccess);
  EXPECT_EQ(Item{*open()}.text(), "new");
}

TEST_F(EncryptedFileKeychainProcessTest, WhatAnotherWriterHasNotFinishedIsLeftAlone) {
  ASSERT_EQ(Item{*open()}.add("old"), qvr::errSecSuccess);
  std::optional<qvr::FileDescriptor> other = takeLock(directory());
  setContent(inUnfinished(".keychain-0123456789abcdef.tmp"), "half an it");
  Tuning impatient = tuning();
  impatient.lockDeadline = std::chrono::milliseconds(20);
  EXPECT_EQ(Item{*open(impatient)}.update("new"), qvr::errSecNotAvailable);
  EXPECT_EQ((Item{*open(impatient), "a", "b"}.add("new")), qvr::errSecNotAvailable);
  EXPECT_EQ(Item{*open(impatient)}.text(), "old");
  std::vector<qvr::KeychainItemName> names;
  EXPECT_EQ(open(impatient)->list(&names), qvr::errSecSuccess);
  EXPECT_EQ(leftovers(), 1u);
}

TEST_F(EncryptedFileKeychainProcessTest, StoreThatStaysLockedIsNotAvailableForNow) {
  ASSERT_EQ(Item{*open()}.add("old"), qvr::errSecSuccess);
  std::optional<qvr::FileDescriptor> other = takeLock(directory());
  Tuning impatient = tuning();
  impatient.lockDeadline = std::chrono::milliseconds(20);
  EXPECT_EQ(Item{*open(impatient)}.update("new"), qvr::errSecNotAvailable);
  EXPECT_EQ(Item{*open(impatient)}.remove(), qvr::errSecNotAvailable);
  EXPECT_EQ((Item{*open(impatient), "a", "b"}.add("new")), qvr::errSecNotAvailable);
  EXPECT_EQ(Item{*open(impatient)}.text(), "old");
  other.reset();
  // Those that gave up come by the lock late, and give it back.
  EXPECT_EQ(Item{*open()}.update("new"), qvr::errSecSuccess);
}

}  // namespace
}  // namespace ports_test
