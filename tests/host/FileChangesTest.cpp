// Files that change together, or not at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/FileChanges.h"
#include "tests/host/DesktopHome.h"

namespace host {
namespace {

using testing::HasSubstr;

class FileChangesTest : public testing::Test {
 protected:
  mode_t modeOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(home.path(name).c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  host_test::DesktopHome home;
};

TEST_F(FileChangesTest, WhatIsKeptStays) {
  home.write("gone", "text");
  FileChanges changes;
  EXPECT_FALSE(changes.write(home.path("folder/new"), "text"));
  EXPECT_FALSE(changes.remove(home.path("gone")));
  changes.keep();
  EXPECT_TRUE(changes.hasChanged());
  EXPECT_EQ(home.read("folder/new"), "text");
  EXPECT_FALSE(home.exists("gone"));
}

TEST_F(FileChangesTest, FileThatAnotherProgramHasChangedIsNotWritten) {
  home.write("list", "now");
  const FileChanges changes;
  EXPECT_FALSE(changes.requireText(home.path("list"), "now"));
  EXPECT_FALSE(changes.requireText(home.path("none"), std::nullopt));
  for (const std::optional<std::string>& known : {std::optional<std::string>(), {"before"}}) {
    const auto failure = changes.requireText(home.path("list"), known);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->status, kTryAgainLater);
    EXPECT_THAT(failure->sentence, HasSubstr("run the command again"));
  }
  EXPECT_TRUE(changes.requireText(home.path("none"), "before"));
}

TEST_F(FileChangesTest, WhatIsNotKeptIsUndone) {
  home.write("changed", "before");
  home.write("gone", "before");
  ASSERT_EQ(chmod(home.path("changed").c_str(), 0640), 0);
  ASSERT_EQ(chmod(home.path("gone").c_str(), 0604), 0);
  {
    FileChanges changes;
    EXPECT_FALSE(changes.write(home.path("changed"), "after"));
    EXPECT_FALSE(changes.write(home.path("changed"), "after that"));
    EXPECT_FALSE(changes.remove(home.path("gone")));
    EXPECT_FALSE(changes.write(home.path("one/two/new"), "text"));
    EXPECT_EQ(home.read("changed"), "after that");
  }
  EXPECT_EQ(home.read("changed"), "before");
  EXPECT_EQ(home.read("gone"), "before");
  EXPECT_EQ(modeOf("changed"), 0640u);
  EXPECT_EQ(modeOf("gone"), 0604u);
  EXPECT_FALSE(home.exists("one"));
}

TEST_F(FileChangesTest, FolderThatSomebodyElseUsesStays) {
  {
    FileChanges changes;
    EXPECT_FALSE(changes.write(home.path("folder/new"), "text"));
    home.write("folder/other", "text");
  }
  EXPECT_FALSE(home.exists("folder/new"));
  EXPECT_TRUE(home.exists("folder/other"));
}

TEST_F(FileChangesTest, SameTextAndMissingFileAreNoChange) {
  home.write("same", "text");
  FileChanges changes;
  EXPECT_FALSE(changes.write(home.path("same"), "text"));
  EXPECT_FALSE(changes.remove(home.path("missing")));
  EXPECT_FALSE(changes.hasChanged());
}

TEST_F(FileChangesTest, WhatIsNoFileIsAFailureThatNamesIt) {
  home.write("folder/file", "text");
  FileChanges changes;
  const auto write = changes.write(home.path("folder"), "text");
  ASSERT_TRUE(write);
  EXPECT_THAT(write->sentence, HasSubstr(home.path("folder")));
  EXPECT_TRUE(changes.remove(home.path("folder")));
  EXPECT_FALSE(changes.hasChanged());
}

TEST_F(FileChangesTest, FileOverOneMebibyteIsNotTouched) {
  home.write("large", std::string((1 << 20) + 1, 'x'));
  FileChanges changes;
  const auto failure = changes.write(home.path("large"), "text");
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->sentence, HasSubstr("1 MiB"));
}

}  // namespace
}  // namespace host
