// qvr-oauth2 token when the folder of its locks is not what it should be: a refresh without a lock
// could cost the token, and is not sent; a token that is fresh needs no folder.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/CommandTest.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

class CommandLockFolderTest : public CommandTest {
 protected:
  // Two accounts: one's token is due, the other's is fresh.
  void signInBoth() {
    ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
    ASSERT_NO_FATAL_FAILURE(signIn(kOther));
    fs::remove_all(lockFolder());
  }

  // With the folder as it is, the due token must not be refreshed, the message must name the path
  // and what to do, and the fresh token must be served.
  void expectRefusal(const fs::path& path, const std::string& advice) {
    const Records before = records();
    const Result due = runWithin(tokenCommand());
    EXPECT_EQ(due.status, 1) << due.error;
    EXPECT_EQ(due.output, "");
    EXPECT_THAT(due.error, AllOf(HasSubstr(path.string()), HasSubstr(advice)));
    EXPECT_EQ(records(), before);
    EXPECT_EQ(refreshes(), 0);
    const Result fresh = runWithin({"token", provider(), kOther});
    EXPECT_EQ(fresh.status, 0) << fresh.error;
    EXPECT_NE(fresh.output, "");
  }

  // Runs the command, behind `prefix` where there is one.
  Result runWithin(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = prefix;
    all.emplace_back(QVR_OAUTH2_PROGRAM);
    all.insert(all.end(), arguments.begin(), arguments.end());
    return resultOf(*startProgram(all));
  }

  // File modes stop even root when it has given up the right to pass over them.
  void obeyFileModes() {
    if (geteuid() == 0) prefix = {"setpriv", "--bounding-set", "-dac_override,-dac_read_search"};
  }

  // Makes the folder another user's: root gives it away; others lay one of root's over it, which
  // their command alone sees.
  void giveAway() {
    fs::create_directory(lockFolder());
    fs::permissions(lockFolder(), fs::perms::owner_all);
    if (geteuid() == 0) {
      ASSERT_EQ(chown(lockFolder().c_str(), 65534, 65534), 0);
    } else {
      prefix = {"unshare", "--map-root-user",
                "--mount", "sh",
                "-c",      "mount --bind /usr '" + lockFolder().string() + "' && exec \"$@\"",
                "sh"};
    }
  }

  fs::path lockFolder() const { return folder.file("run/qvr-oauth2"); }

  static constexpr const char* kOther = "bob@example.com";
  std::vector<std::string> prefix;
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandLockFolderTest, testing::Values("Google"));

TEST_P(CommandLockFolderTest, AMissingFolderIsMadeForTheUserAlone) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  fs::remove_all(folder.file("run"));
  const Result result = token();
  EXPECT_EQ(result.status, 0) << result.error;
  struct stat status {};
  ASSERT_EQ(stat(lockFolder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  EXPECT_EQ(status.st_uid, geteuid());
}

TEST_P(CommandLockFolderTest, AFreshTokenNeedsNoFolderAndMakesNone) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  const Result result = run({"token", provider(), kOther});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_FALSE(fs::exists(lockFolder()));
}

TEST_P(CommandLockFolderTest, ASymbolicLinkIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  fs::create_directory(folder.file("elsewhere"));
  fs::permissions(folder.file("elsewhere"), fs::perms::owner_all);
  fs::create_directory_symlink(folder.file("elsewhere"), lockFolder());
  expectRefusal(lockFolder(), "move what is there away");
  EXPECT_TRUE(fs::is_empty(folder.file("elsewhere")));
}

// It would be sent through the browser in vain.
TEST_P(CommandLockFolderTest, StopsASignInBeforeTheBrowserOpens) {
  fs::create_directory_symlink(folder.path(), lockFolder());
  const Result result = runWithin({"sign-in", "--no-browser", provider(), kUser});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "") << "no address";
  EXPECT_THAT(result.error, HasSubstr(lockFolder()));
  EXPECT_EQ(counterpart.count(side(), "authorize"), 0);
}

TEST_P(CommandLockFolderTest, APlainFileIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  folder.write("run/qvr-oauth2", "");
  expectRefusal(lockFolder(), "move what is there away");
}

TEST_P(CommandLockFolderTest, AFolderThatIsOpenToOthersIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  fs::create_directory(lockFolder());
  fs::permissions(lockFolder(), fs::perms::owner_all | fs::perms::group_all);
  expectRefusal(lockFolder(), "chmod 700");
}

TEST_P(CommandLockFolderTest, AnotherUsersFolderIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  ASSERT_NO_FATAL_FAILURE(giveAway());
  expectRefusal(lockFolder(), "belongs to another user");
}

TEST_P(CommandLockFolderTest, AReadOnlyFolderIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  fs::create_directory(lockFolder());
  fs::permissions(lockFolder(), fs::perms::owner_read | fs::perms::owner_exec);
  obeyFileModes();
  expectRefusal(lockFolder(), "check the file, and the permissions of its folder");
  fs::permissions(lockFolder(), fs::perms::owner_all);
}

TEST_P(CommandLockFolderTest, AFolderThatCannotBeMadeIsNamed) {
  ASSERT_NO_FATAL_FAILURE(signInBoth());
  fs::permissions(folder.file("run"), fs::perms::owner_read | fs::perms::owner_exec);
  obeyFileModes();
  expectRefusal(lockFolder(), "check the permissions of the folders above it");
  fs::permissions(folder.file("run"), fs::perms::owner_all);
}

TEST_P(CommandLockFolderTest, ALockFileThatIsASymbolicLinkIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  fs::path lockFile;
  for (const auto& entry : fs::directory_iterator(lockFolder())) {
    if (entry.path().extension() == ".lock") lockFile = entry.path();
  }
  ASSERT_FALSE(lockFile.empty());
  fs::remove(lockFile);
  fs::create_symlink(folder.file("elsewhere"), lockFile);
  const Records before = records();
  const Result result = token();
  EXPECT_EQ(result.status, 1) << result.error;
  EXPECT_THAT(result.error, HasSubstr(lockFile.string()));
  EXPECT_FALSE(fs::exists(folder.file("elsewhere")));
  EXPECT_EQ(records(), before);
  EXPECT_EQ(refreshes(), 0);
}

}  // namespace
}  // namespace e2e
