// Who handles a scheme on a desktop, asked by the rules that desktops follow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/DefaultHandler.h"
#include "tests/host/DesktopHome.h"

namespace host {
namespace {

constexpr const char* kScheme = "com.example";
constexpr const char* kUsers = "config/mimeapps.list";

class DefaultHandlerTest : public testing::Test {
 protected:
  DefaultHandlerTest() {
    folders.settings = home.path("config");
    folders.settingsOfAll = {home.path("etc")};
    folders.applications = home.path("data/applications");
    folders.applicationsOfAll = {home.path("usr/applications")};
    folders.desktops = {"gnome", "kde"};
    for (const char* const entry : {"a.desktop", "b.desktop", "c.desktop"})
      home.write(std::string("usr/applications/") + entry, "[Desktop Entry]\n");
  }

  // A list in which the entries handle the scheme.
  void list(const std::string& name, const std::string& entries) const {
    home.write(name, "[Default Applications]\nx-scheme-handler/com.example=" + entries + "\n");
  }

  std::string handler(const char* except = "") const {
    return defaultHandler(folders, kScheme, except);
  }

  host_test::DesktopHome home;
  DesktopFolders folders;
};

TEST_F(DefaultHandlerTest, NobodyIsTheHandlerOfAnUnknownScheme) {
  list(kUsers, "a.desktop");
  EXPECT_EQ(defaultHandler(folders, "org.example"), "");
}

TEST_F(DefaultHandlerTest, ListsCountInTheirOrder) {
  const char* const lists[] = {"usr/applications/mimeapps.list",
                               "data/applications/mimeapps.list",
                               "etc/mimeapps.list",
                               "config/mimeapps.list",
                               "config/kde-mimeapps.list",
                               "config/gnome-mimeapps.list"};
  const char* const entries[] = {"a.desktop", "b.desktop"};
  for (std::size_t i = 0; i < std::size(lists); ++i) {
    list(lists[i], entries[i % 2]);
    EXPECT_EQ(handler(), entries[i % 2]) << lists[i];
  }
}

TEST_F(DefaultHandlerTest, EntriesThatAreNotInstalledAreSkipped) {
  list(kUsers, "gone.desktop;b.desktop");
  EXPECT_EQ(handler(), "b.desktop");
  list(kUsers, "gone.desktop");
  list("etc/mimeapps.list", "c.desktop");
  EXPECT_EQ(handler(), "c.desktop");
}

TEST_F(DefaultHandlerTest, EntryInAFolderIsNamedWithIt) {
  home.write("data/applications/kde/mail.desktop", "[Desktop Entry]\n");
  list(kUsers, "kde-mail.desktop;a.desktop");
  EXPECT_EQ(handler(), "kde-mail.desktop");
}

TEST_F(DefaultHandlerTest, ExceptedEntryIsSkipped) {
  list(kUsers, "a.desktop;b.desktop");
  EXPECT_EQ(handler("a.desktop"), "b.desktop");
}

TEST_F(DefaultHandlerTest, WithoutAChoiceTheEntriesSpeakForThemselves) {
  home.write("usr/applications/mimeinfo.cache",
             "[MIME Cache]\nx-scheme-handler/com.example=gone.desktop;c.desktop;\n");
  EXPECT_EQ(handler(), "c.desktop");
  EXPECT_EQ(handler("c.desktop"), "");
  list(kUsers, "b.desktop");
  EXPECT_EQ(handler(), "b.desktop");
}

TEST_F(DefaultHandlerTest, OnlyTheRunningDesktopsListOverridesTheUsers) {
  list("config/xfce-mimeapps.list", "a.desktop");
  EXPECT_FALSE(overridingHandler(folders, kScheme, "ours.desktop"));
  list("config/kde-mimeapps.list", "b.desktop");
  const auto overriding = overridingHandler(folders, kScheme, "ours.desktop");
  ASSERT_TRUE(overriding);
  EXPECT_EQ(overriding->list, home.path("config/kde-mimeapps.list"));
  EXPECT_EQ(overriding->entry, "b.desktop");
  EXPECT_FALSE(overridingHandler(folders, kScheme, "b.desktop"));
  EXPECT_FALSE(overridingHandler(folders, "org.example", "ours.desktop"));
}

}  // namespace
}  // namespace host
