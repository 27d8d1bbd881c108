// The browser opener with the system's own xdg-open, on a desktop that has no browser but the
// test's.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "src/ports/DesktopWorkspace.h"
#include "tests/support/ChildProcess.h"

namespace ports_test {
namespace {

constexpr char kURL[] = "https://login.example.com/authorize?state=a%2Bb&x=1";

// Where the system has a program, links included.
std::string systemProgram(const std::string& name) {
  for (const std::string folder : {"/usr/bin/", "/bin/"}) {
    if (std::filesystem::exists(folder + name)) return folder + name;
  }
  return {};
}

class DesktopHandlerTest : public testing::Test {
 protected:
  // What xdg-open is made of: no folder of the system may be on the path, for the browsers in it.
  DesktopHandlerTest() {
    std::filesystem::create_directory(folder_.file("bin"));
    for (const char* name : {"sh", "sed", "grep", "egrep", "awk", "cut", "tr", "head", "which",
                             "uname", "cat", "basename", "dirname", "readlink", "xdg-mime"}) {
      std::filesystem::create_symlink(systemProgram(name), folder_.file("bin") + "/" + name);
    }
    const std::string handler = systemProgram("xdg-open");
    EXPECT_FALSE(handler.empty()) << "xdg-utils is not installed";
    std::filesystem::create_symlink(handler, folder_.file("bin/xdg-open"));
  }

  void addProgram(const std::string& name, const std::string& commands) const {
    const std::string script = "#!/bin/sh\n" + commands + "\n";
    ASSERT_EQ(chmod(folder_.write("bin/" + name, script).c_str(), 0700), 0);
  }

  // A browser that writes down what it is called with.
  void addRecorder(const std::string& name) const {
    addProgram(name, "printf '%s\\n' \"$@\" > '" + folder_.file(name) + "'");
  }

  std::string recorded(const std::string& name) const {
    std::ifstream file(folder_.file(name));
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "not called";
  }

  void addDesktopEntry(const std::string& program) const {
    std::filesystem::create_directories(folder_.file("share/applications"));
    folder_.write("share/applications/b.desktop",
                  "[Desktop Entry]\nType=Application\nName=b\nExec=" + program + " %u\n");
    folder_.write("share/applications/mimeinfo.cache",
                  "[MIME Cache]\nx-scheme-handler/https=b.desktop;\n");
  }

  bool open() const {
    std::vector<std::string> variables{
        "DISPLAY=:0",
        "XDG_CURRENT_DESKTOP=X-Generic",
        "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent",
        "PATH=" + folder_.file("bin"),
        "HOME=" + folder_.file("home"),
        "XDG_DATA_DIRS=" + folder_.file("share"),
        "XDG_CONFIG_DIRS=" + folder_.file("xdg"),
    };
    qvr::DesktopWorkspaceOptions options{qvr::Environment(std::move(variables))};
    options.patience = options.searchPatience = std::chrono::minutes(1);
    options.sandboxMark = "/nonexistent";
    return qvr::makeRef<qvr::DesktopWorkspace>(options)->openURL(*qvr::URL::URLWithString(kURL));
  }

  const support::TemporaryFolder folder_;
};

TEST_F(DesktopHandlerTest, DefaultBrowserGetsTheAddress) {
  addRecorder("browser");
  addDesktopEntry("browser");
  EXPECT_TRUE(open());
  EXPECT_EQ(recorded("browser"), std::string(kURL) + "\n");
}

TEST_F(DesktopHandlerTest, WithoutABrowserOpeningFails) {
  EXPECT_FALSE(open());
}

TEST_F(DesktopHandlerTest, BrowserThatIsGoneIsNone) {
  addDesktopEntry("browser");
  EXPECT_FALSE(open());
}

TEST_F(DesktopHandlerTest, BrowserThatFailsIsNone) {
  addProgram("browser", "exit 1");
  addDesktopEntry("browser");
  EXPECT_FALSE(open());
}

TEST_F(DesktopHandlerTest, BrowserThatTheDesktopDoesNotKnowIsFound) {
  addRecorder("firefox");
  EXPECT_TRUE(open());
  EXPECT_EQ(recorded("firefox"), std::string(kURL) + "\n");
}

TEST_F(DesktopHandlerTest, BrowsersForATerminalAreNotStarted) {
  for (const char* name : {"www-browser", "links2", "elinks", "links", "lynx", "w3m"}) {
    addRecorder(name);
    EXPECT_FALSE(open()) << name;
    EXPECT_EQ(recorded(name), "not called");
  }
}

}  // namespace
}  // namespace ports_test
