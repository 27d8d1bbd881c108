// Where the command keeps things, whatever the environment says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "host/Paths.h"
#include "tests/support/ChildProcess.h"

namespace {

using testing::HasSubstr;

// Sets or unsets a variable for a scope.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* const old = std::getenv(name)) old_ = old;
    set(value);
  }
  ~Variable() { set(old_ ? old_->c_str() : nullptr); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  void set(const char* value) const {
    if (value != nullptr) {
      setenv(name_, value, 1);
    } else {
      unsetenv(name_);
    }
  }

  const char* const name_;
  std::optional<std::string> old_;
};

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

TEST(Paths, AreBelowHomeByDefault) {
  const Variable home("HOME", "/home/somebody");
  for (const char* const unset : {static_cast<const char*>(nullptr), "", "relative/folder"}) {
    const Variable config("XDG_CONFIG_HOME", unset);
    const Variable data("XDG_DATA_HOME", unset);
    const Variable runtime("XDG_RUNTIME_DIR", unset);
    EXPECT_EQ(host::configurationFolder(), "/home/somebody/.config/qvr-oauth2");
    EXPECT_EQ(host::dataFolder(), "/home/somebody/.local/share/qvr-oauth2");
    const std::string user = std::to_string(getuid());
    struct stat session = {};
    const bool hasSession = lstat(("/run/user/" + user).c_str(), &session) == 0 &&
                            session.st_uid == geteuid() && (session.st_mode & S_IFMT) == S_IFDIR &&
                            (session.st_mode & 077) == 0;
    EXPECT_EQ(host::runtimeFolder(),
              hasSession ? "/run/user/" + user + "/qvr-oauth2" : "/tmp/qvr-oauth2-" + user);
  }
}

TEST(Paths, FollowTheXDGVariables) {
  const Variable config("XDG_CONFIG_HOME", "/c");
  const Variable data("XDG_DATA_HOME", "/d");
  const Variable runtime("XDG_RUNTIME_DIR", "/run/user/7");
  EXPECT_EQ(host::configurationFolder(), "/c/qvr-oauth2");
  EXPECT_EQ(host::dataFolder(), "/d/qvr-oauth2");
  EXPECT_EQ(host::runtimeFolder(), "/run/user/7/qvr-oauth2");
}

TEST(Paths, AskThePasswordFileWhenHomeIsUnset) {
  const Variable home("HOME", nullptr);
  const Variable config("XDG_CONFIG_HOME", nullptr);
  const auto folder = host::configurationFolder();
  ASSERT_TRUE(folder);
  EXPECT_TRUE(folder->starts_with('/'));
  EXPECT_TRUE(folder->ends_with("/.config/qvr-oauth2"));
}

TEST(Paths, ResolveRelativeOnesAgainstAFolder) {
  EXPECT_EQ(host::resolved("/absolute", "/folder"), "/absolute");
  EXPECT_EQ(host::resolved("ca.pem", "/folder"), "/folder/ca.pem");
  EXPECT_EQ(host::parentFolder("/a/b.toml"), "/a");
  EXPECT_EQ(host::parentFolder("/b.toml"), "/");
  EXPECT_EQ(host::parentFolder("b.toml"), ".");
}

TEST(PrivateFolder, IsMadeWithAllThatIsMissingAndClosedToOthers) {
  const support::TemporaryFolder folder;
  const std::string path = folder.file("a/b/c");
  EXPECT_FALSE(host::makePrivateFolder(path));
  EXPECT_EQ(modeOf(path), 0700u);
  EXPECT_EQ(modeOf(folder.file("a")), 0700u);
  EXPECT_FALSE(host::makePrivateFolder(path)) << "a second time";
}

TEST(PrivateFolder, IsRefusedWhenOthersCouldReachIntoIt) {
  const support::TemporaryFolder folder;
  const std::string open = folder.file("open");
  ASSERT_EQ(mkdir(open.c_str(), 0700), 0);
  ASSERT_EQ(chmod(open.c_str(), 0750), 0);
  EXPECT_THAT(host::makePrivateFolder(open)->sentence, HasSubstr("chmod 700"));
  const std::string link = folder.file("link");
  ASSERT_EQ(chmod(open.c_str(), 0700), 0);
  ASSERT_EQ(symlink(open.c_str(), link.c_str()), 0);
  EXPECT_THAT(host::makePrivateFolder(link)->sentence, HasSubstr("is not a folder"));
}

TEST(PrivateFolder, IsRefusedBehindAFile) {
  const support::TemporaryFolder folder;
  const std::string file = folder.write("file", "x");
  const auto failure = host::makePrivateFolder(file + "/below");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, host::kFailed);
  EXPECT_THAT(failure->sentence, HasSubstr("cannot be made"));
  EXPECT_THAT(host::makePrivateFolder(file)->sentence, HasSubstr("is not a folder"));
}

}  // namespace
