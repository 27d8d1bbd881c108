// Whether a desktop knows a program for web addresses, by lists and entries of the test's own.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "src/ports/WebHandler.h"
#include "tests/support/ChildProcess.h"

namespace ports_test {
namespace {

constexpr char kEntry[] = "[Desktop Entry]\nType=Application\nExec=browser --new %u\n";
constexpr char kDefault[] = "[Default Applications]\nx-scheme-handler/https=b.desktop\n";

class WebHandlerTest : public testing::Test {
 protected:
  WebHandlerTest() {
    write("bin/browser", "#!/bin/sh\n");
    EXPECT_EQ(chmod(folder_.file("bin/browser").c_str(), 0700), 0);
  }

  void write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(folder_.file(name)).parent_path());
    folder_.write(name, content);
  }

  bool isEvident(std::vector<std::string> variables = {}) const {
    variables.push_back("PATH=" + folder_.file("bin"));
    variables.push_back("HOME=" + folder_.file("home"));
    variables.push_back("XDG_DATA_DIRS=" + folder_.file("one") + ":" + folder_.file("two"));
    variables.push_back("XDG_CONFIG_DIRS=" + folder_.file("xdg"));
    return qvr::isWebHandlerEvident(qvr::Environment(variables));
  }

  const support::TemporaryFolder folder_;
};

TEST_F(WebHandlerTest, NothingIsEvidentOnABareSystem) {
  EXPECT_FALSE(isEvident());
}

TEST_F(WebHandlerTest, EveryListOfTheDesktopCounts) {
  write("two/applications/b.desktop", kEntry);
  for (const char* list :
       {"home/.config/mimeapps.list", "home/.config/gnome-mimeapps.list", "xdg/mimeapps.list",
        "home/.local/share/applications/mimeapps.list", "one/applications/mimeinfo.cache",
        "two/applications/mimeinfo.cache", "two/applications/defaults.list"}) {
    write(list, kDefault);
    EXPECT_TRUE(isEvident({"XDG_CURRENT_DESKTOP=Unity:GNOME"})) << list;
    std::filesystem::remove(folder_.file(list));
  }
}

TEST_F(WebHandlerTest, FoldersMayBeNamed) {
  write("data/applications/b.desktop", kEntry);
  write("config/mimeapps.list", kDefault);
  EXPECT_FALSE(isEvident());
  EXPECT_TRUE(isEvident(
      {"XDG_DATA_HOME=" + folder_.file("data"), "XDG_CONFIG_HOME=" + folder_.file("config")}));
}

TEST_F(WebHandlerTest, ListOfAnotherDesktopDoesNotCount) {
  write("two/applications/b.desktop", kEntry);
  write("home/.config/kde-mimeapps.list", kDefault);
  EXPECT_FALSE(isEvident({"XDG_CURRENT_DESKTOP=GNOME"}));
}

TEST_F(WebHandlerTest, OneOfSeveralEntriesIsEnough) {
  write("two/applications/b.desktop", kEntry);
  write("one/applications/mimeinfo.cache",
        "[MIME Cache]\ntext/html=a.desktop;\nx-scheme-handler/https=gone.desktop;b.desktop;\n");
  EXPECT_TRUE(isEvident());
}

TEST_F(WebHandlerTest, OtherSchemesAndRemovedAssociationsDoNotCount) {
  write("two/applications/b.desktop", kEntry);
  write("home/.config/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/httpsx=b.desktop\ntext/html=b.desktop\n"
        "[Removed Associations]\nx-scheme-handler/https=b.desktop\n");
  EXPECT_FALSE(isEvident());
  write("home/.config/mimeapps.list", std::string("[Removed Associations]\n[Other]\n") + kDefault);
  EXPECT_TRUE(isEvident());
}

TEST_F(WebHandlerTest, EntryWithoutItsProgramDoesNotCount) {
  write("home/.config/mimeapps.list", kDefault);
  EXPECT_FALSE(isEvident());  // no entry at all
  for (const char* entry :
       {"[Desktop Entry]\nExec=gone %u\n", "[Desktop Entry]\nExec=/gone/browser\n",
        "[Desktop Entry]\nExec=\n", "[Desktop Entry]\nName=b\n", ""}) {
    write("two/applications/b.desktop", entry);
    EXPECT_FALSE(isEvident()) << entry;
  }
}

TEST_F(WebHandlerTest, ProgramMayBeQuotedOrAPath) {
  write("home/.config/mimeapps.list", kDefault);
  for (const std::string& program :
       {std::string("\"browser\" %u"), folder_.file("bin/browser") + " %U", std::string("browser"),
        "\"" + folder_.file("bin/browser") + "\"\t%U"}) {
    write("two/applications/b.desktop", "[Desktop Entry]\nExec=" + program + "\n");
    EXPECT_TRUE(isEvident()) << program;
  }
}

TEST_F(WebHandlerTest, EntryMayLieInAFolderOfItsVendor) {
  write("home/.config/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/https=vendor-b.desktop\n");
  write("two/applications/vendor/b.desktop", kEntry);
  EXPECT_TRUE(isEvident());
}

TEST_F(WebHandlerTest, EntryOfTheFirstFolderCovers) {
  write("home/.config/mimeapps.list", kDefault);
  write("one/applications/b.desktop", "[Desktop Entry]\nExec=gone\n");
  write("two/applications/b.desktop", kEntry);
  EXPECT_FALSE(isEvident());
}

TEST_F(WebHandlerTest, PipesAndDevicesAreNotRead) {
  write("home/.config/mimeapps.list", kDefault);
  std::filesystem::create_directories(folder_.file("one/applications"));
  for (const char* pipe : {"home/.config/gnome-mimeapps.list", "one/applications/b.desktop"})
    ASSERT_EQ(mkfifo(folder_.file(pipe).c_str(), 0600), 0) << pipe;
  std::filesystem::create_symlink("/dev/zero", folder_.file("one/applications/mimeinfo.cache"));
  EXPECT_FALSE(isEvident({"XDG_CURRENT_DESKTOP=GNOME"}));
  write("two/applications/b.desktop", kEntry);
  EXPECT_TRUE(isEvident({"XDG_CURRENT_DESKTOP=GNOME"}));
}

TEST_F(WebHandlerTest, EntryOutsideOfTheFoldersDoesNotCount) {
  write("two/outside.desktop", kEntry);
  write("two/applications/vendor/b.desktop", kEntry);
  for (const std::string& name :
       {std::string("../outside.desktop"), std::string("vendor/b.desktop"),
        std::string("..-outside.desktop"), folder_.file("two/outside.desktop")}) {
    write("home/.config/mimeapps.list",
          "[Default Applications]\nx-scheme-handler/https=" + name + "\n");
    EXPECT_FALSE(isEvident()) << name;
  }
}

TEST_F(WebHandlerTest, LinkedFilesCount) {
  write("lists/apps", kDefault);
  write("entries/b", kEntry);
  for (const char* folder : {"home/.config", "two/applications"})
    std::filesystem::create_directories(folder_.file(folder));
  std::filesystem::create_symlink(folder_.file("lists/apps"),
                                  folder_.file("home/.config/mimeapps.list"));
  std::filesystem::create_symlink(folder_.file("entries/b"),
                                  folder_.file("two/applications/b.desktop"));
  EXPECT_TRUE(isEvident());
}

TEST_F(WebHandlerTest, NoMoreThanAMebibyteIsRead) {
  constexpr std::size_t kMebibyte = 1 << 20;
  write("two/applications/b.desktop", kEntry);
  const std::string list = kDefault;
  write("home/.config/mimeapps.list", std::string(kMebibyte - list.size() - 1, '#') + "\n" + list);
  EXPECT_TRUE(isEvident());
  write("home/.config/mimeapps.list", std::string(kMebibyte, '#') + "\n" + list);
  EXPECT_FALSE(isEvident());
}

}  // namespace
}  // namespace ports_test
