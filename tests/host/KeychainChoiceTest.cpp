// The choice of a keychain on first use, and the lock that keeps it while a command works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "host/ConfigurationEdit.h"
#include "host/KeychainChoice.h"
#include "tests/host/CommandTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Countdown.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using qvr::SecretServiceState;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class KeychainChoiceTest : public testing::Test {
 protected:
  void configure(const std::string& keychainSection, const std::string& name = "config.toml") {
    path = folder.write(name,
                        "bundle_identifier = \"org.example.mail\"\n"
                        "[keychain]\ndirectory = \"items\"\n" +
                            keychainSection);
  }

  Configuration configuration() const { return std::get<Configuration>(readConfiguration(path)); }
  std::string kindInTheFile() const { return configuration().keychain.kind; }

  // Settles the kind, and keeps what was said.
  std::optional<Failure> settle(SecretServiceState::Kind state) {
    std::optional<Failure> failure;
    const host_test::Printed printed = host_test::collect([&] {
      Configuration settled = configuration();
      auto lock = settleKeychain(settled, [&] {
        ++examinations;
        return SecretServiceState{state, "reason"};
      });
      if (auto* found = std::get_if<Failure>(&lock)) failure = *found;
      kind = settled.keychain.kind;
      return 0;
    });
    EXPECT_EQ(printed.output, "");
    said = printed.error;
    return failure;
  }

  void putSomethingIntoTheFiles() const {
    ASSERT_EQ(mkdir(folder.file("items").c_str(), 0700), 0);
    folder.write("items/something", "");
  }

  static constexpr auto kReady = SecretServiceState::Kind::kReady;
  static constexpr auto kLocked = SecretServiceState::Kind::kLocked;
  static constexpr auto kAbsent = SecretServiceState::Kind::kAbsent;

  const support::TemporaryFolder folder;
  std::string path;
  std::string kind;
  std::string said;
  int examinations = 0;
};

TEST_F(KeychainChoiceTest, FirstUsePicksTheSecretServiceWhenOneAnswersAndSaysSo) {
  for (const auto state : {kReady, kLocked}) {
    configure("");
    ASSERT_FALSE(settle(state));
    EXPECT_EQ(kind, kSecretService);
    EXPECT_EQ(kindInTheFile(), kSecretService);
    EXPECT_THAT(said, AllOf(HasSubstr("desktop's keyring"), HasSubstr(path),
                            HasSubstr("keychain move file")));
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
  }
}

TEST_F(KeychainChoiceTest, FirstUsePicksTheFilesWhenNoneAnswersAndSaysSo) {
  configure("kind = \"\"\n");
  ASSERT_FALSE(settle(kAbsent));
  EXPECT_EQ(kind, kEncryptedFile);
  EXPECT_EQ(kindInTheFile(), kEncryptedFile);
  EXPECT_THAT(said, AllOf(HasSubstr("no desktop keyring"), HasSubstr(folder.file("items")),
                          HasSubstr("keychain move secret-service")));
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
}

TEST_F(KeychainChoiceTest, ChoiceIsNeverChangedNorSaidAgain) {
  configure("");
  ASSERT_FALSE(settle(kReady));
  ASSERT_FALSE(settle(kAbsent));
  EXPECT_EQ(kind, kSecretService);
  EXPECT_EQ(said, "");
  configure("kind = \"encrypted-file\"\n");
  ASSERT_FALSE(settle(kReady));
  EXPECT_EQ(kind, kEncryptedFile);
  EXPECT_EQ(said, "");
  EXPECT_EQ(examinations, 1);
}

TEST_F(KeychainChoiceTest, WhoeverHasItemsInFilesStaysThere) {
  configure("");
  putSomethingIntoTheFiles();
  ASSERT_FALSE(settle(kReady));
  EXPECT_EQ(kind, kEncryptedFile);
  EXPECT_EQ(kindInTheFile(), kEncryptedFile);
  EXPECT_THAT(said, HasSubstr("stay in encrypted files"));
  EXPECT_EQ(examinations, 0);
}

TEST_F(KeychainChoiceTest, EmptyFolderOfFilesIsNoUse) {
  configure("");
  ASSERT_EQ(mkdir(folder.file("items").c_str(), 0700), 0);
  ASSERT_FALSE(settle(kReady));
  EXPECT_EQ(kind, kSecretService);
}

TEST_F(KeychainChoiceTest, FolderThatCannotBeReadCountsAsUsed) {
  configure("");
  folder.write("items", "no folder");
  ASSERT_FALSE(settle(kReady));
  EXPECT_EQ(kind, kEncryptedFile);
}

// A name so long that no temporary file fits beside it: the file can be read and not replaced, as
// in a read-only folder, also by root.
class UnwritableChoiceTest : public KeychainChoiceTest {
 protected:
  void configureUnwritable() { configure("", std::string(250, 'c')); }
};

TEST_F(UnwritableChoiceTest, SecretServiceThatCannotBeRememberedIsNotUsed) {
  configureUnwritable();
  const auto failure = settle(kReady);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, kFailed);
  EXPECT_THAT(failure->sentence, AllOf(HasSubstr("cannot be written"),
                                       HasSubstr("write kind = \"secret-service\" under")));
  EXPECT_EQ(kindInTheFile(), "");
}

TEST_F(UnwritableChoiceTest, FilesThatAreInUseAreUsedInSilence) {
  configureUnwritable();
  putSomethingIntoTheFiles();
  for (int run = 0; run < 2; ++run) {
    ASSERT_FALSE(settle(kReady));
    EXPECT_EQ(kind, kEncryptedFile);
    EXPECT_EQ(said, "");
  }
}

TEST_F(UnwritableChoiceTest, NewFilesAreUsedAndSaidSo) {
  configureUnwritable();
  ASSERT_FALSE(settle(kAbsent));
  EXPECT_EQ(kind, kEncryptedFile);
  EXPECT_THAT(said, HasSubstr("could not be written into"));
}

TEST_F(UnwritableChoiceTest, FilesThatAreInUseDoNotWaitForAnotherCommand) {
  configureUnwritable();
  putSomethingIntoTheFiles();
  const auto waiting = ConfigurationLock::acquire(path, ConfigurationLock::Kind::kShared, 0ms);
  ASSERT_TRUE(std::holds_alternative<ConfigurationLock>(waiting));
  ASSERT_FALSE(settle(kReady));
  EXPECT_EQ(kind, kEncryptedFile);
}

TEST_F(KeychainChoiceTest, FirstUsesAtOnceMakeOneChoice) {
  configure("");
  std::atomic<int> asked{0};
  std::vector<std::string> kinds(8);
  const host_test::Printed printed = host_test::collect([&] {
    support::runOnThreads(kinds.size(), [&](std::size_t index) {
      Configuration settled = configuration();
      const auto lock = settleKeychain(settled, [&] {
        const bool isFirst = asked++ == 0;
        return SecretServiceState{isFirst ? kReady : kAbsent, ""};
      });
      EXPECT_TRUE(std::holds_alternative<ConfigurationLock>(lock));
      kinds[index] = settled.keychain.kind;
    });
    return 0;
  });
  EXPECT_THAT(kinds, testing::Each(std::string(kSecretService)));
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(std::count(printed.error.begin(), printed.error.end(), '\n'), 1) << printed.error;
}

TEST_F(KeychainChoiceTest, KindOfTheFileIsTakenAsItIsNow) {
  configure("kind = \"encrypted-file\"\n");
  Configuration stale = configuration();
  configure("kind = \"secret-service\"\n");
  const auto lock = settleKeychain(stale, [] { return SecretServiceState{}; });
  ASSERT_TRUE(std::holds_alternative<ConfigurationLock>(lock));
  EXPECT_EQ(stale.keychain.kind, kSecretService);
}

// Runs it without what root may do in files that are closed to him.
void withoutPrivileges(const std::function<void()>& run) {
  std::thread([&] {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    ASSERT_EQ(syscall(SYS_capset, &header, none), 0);  // of this thread only
    run();
  }).join();
}

class ConfigurationLockTest : public KeychainChoiceTest {
 protected:
  using Kind = ConfigurationLock::Kind;
  using Result = std::variant<ConfigurationLock, Failure>;

  ConfigurationLockTest() { configure(""); }

  Result acquire(Kind lockKind, std::chrono::milliseconds deadline = 0ms) const {
    return ConfigurationLock::acquire(path, lockKind, deadline);
  }
  static bool isLocked(const Result& result) {
    return std::holds_alternative<ConfigurationLock>(result);
  }
};

TEST_F(ConfigurationLockTest, SharesAndExcludes) {
  {
    const Result one = acquire(Kind::kShared);
    const Result two = acquire(Kind::kShared);
    EXPECT_TRUE(isLocked(one));
    EXPECT_TRUE(isLocked(two));
    const Result refused = acquire(Kind::kExclusive);
    ASSERT_FALSE(isLocked(refused));
    EXPECT_EQ(std::get<Failure>(refused).status, kTryAgainLater);
  }
  const Result exclusive = acquire(Kind::kExclusive);
  EXPECT_TRUE(isLocked(exclusive));
  const Result refused = acquire(Kind::kShared);
  ASSERT_FALSE(isLocked(refused));
  EXPECT_EQ(std::get<Failure>(refused).status, kTryAgainLater);
  EXPECT_THAT(std::get<Failure>(refused).sentence, HasSubstr("moving the tokens"));
}

TEST_F(ConfigurationLockTest, WaitsForItsTurn) {
  std::optional<Result> first(acquire(Kind::kExclusive));
  auto second = std::async(std::launch::async, [&] { return acquire(Kind::kShared, 60s); });
  first.reset();
  EXPECT_TRUE(isLocked(second.get()));
}

TEST_F(ConfigurationLockTest, KeepsOthersOutThoughTheConfigurationIsReplaced) {
  for (const Kind held : {Kind::kShared, Kind::kExclusive}) {
    const Result lock = acquire(held);
    ASSERT_TRUE(isLocked(lock));
    ASSERT_FALSE(writeKeychainKind(path, kSecretService));
    const Result refused = acquire(Kind::kExclusive);
    ASSERT_FALSE(isLocked(refused));
    EXPECT_EQ(std::get<Failure>(refused).status, kTryAgainLater);
  }
}

TEST_F(ConfigurationLockTest, LiesOnAPrivateFileBesideTheConfigurationThatStays) {
  ASSERT_TRUE(isLocked(acquire(Kind::kExclusive)));
  struct stat made = {};
  ASSERT_EQ(stat((path + ".lock").c_str(), &made), 0);
  EXPECT_EQ(made.st_mode, S_IFREG | 0600u);
  ASSERT_TRUE(isLocked(acquire(Kind::kShared)));
  struct stat now = {};
  ASSERT_EQ(stat((path + ".lock").c_str(), &now), 0);
  EXPECT_EQ(now.st_ino, made.st_ino);
}

TEST_F(ConfigurationLockTest, IsTheSameByEveryLinkToTheConfiguration) {
  const std::string link = folder.file("link.toml");
  ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
  const Result lock = acquire(Kind::kExclusive);
  ASSERT_TRUE(isLocked(lock));
  EXPECT_FALSE(isLocked(ConfigurationLock::acquire(link, Kind::kShared, 0ms)));
  EXPECT_NE(access((link + ".lock").c_str(), F_OK), 0);
}

TEST_F(ConfigurationLockTest, LiesOnTheConfigurationInAReadOnlyFolder) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0500), 0);
  withoutPrivileges([this] {
    const Result one = acquire(Kind::kShared);
    EXPECT_TRUE(isLocked(one));
    const Result refused = acquire(Kind::kExclusive);
    ASSERT_FALSE(isLocked(refused));
    EXPECT_EQ(std::get<Failure>(refused).status, kTryAgainLater);
  });
  ASSERT_EQ(chmod(folder.path().c_str(), 0700), 0);
  EXPECT_NE(access((path + ".lock").c_str(), F_OK), 0);
}

TEST_F(ConfigurationLockTest, FailsWithASentenceWhenItsFileCannotBeOpened) {
  ASSERT_EQ(symlink(path.c_str(), (path + ".lock").c_str()), 0);
  const Result linked = acquire(Kind::kShared);
  ASSERT_FALSE(isLocked(linked));
  EXPECT_EQ(std::get<Failure>(linked).status, kFailed);
  EXPECT_THAT(std::get<Failure>(linked).sentence, HasSubstr(path + ".lock"));
  path = folder.file("none/config.toml");
  const Result folderless = acquire(Kind::kShared);
  ASSERT_FALSE(isLocked(folderless));
  EXPECT_EQ(std::get<Failure>(folderless).status, kFailed);
}

TEST_F(ConfigurationLockTest, OfAnotherUserIsNotPassedByWhereTheConfigurationCanBeReplaced) {
  folder.write("config.toml.lock", "");
  ASSERT_EQ(chmod((path + ".lock").c_str(), 0), 0);
  withoutPrivileges([this] { EXPECT_FALSE(isLocked(acquire(Kind::kShared))); });
}

}  // namespace
}  // namespace host
