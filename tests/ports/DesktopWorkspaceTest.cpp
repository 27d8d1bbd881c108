// The browser opener, with handlers of the test's own on a private PATH.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/DesktopWorkspace.h"
#include "src/ports/FileCalls.h"
#include "tests/support/ChildProcess.h"

namespace ports_test {
namespace {

constexpr char kURL[] = "https://login.example.com/authorize?state=a%2Bb&x=%25s;$(touch%20y)";

class DesktopWorkspaceTest : public testing::Test {
 protected:
  DesktopWorkspaceTest() { std::filesystem::create_directory(folder_.file("bin")); }

  // A program that runs these shell commands.
  void addProgram(const std::string& name, const std::string& commands) const {
    const std::string script = "#!/bin/sh\nPATH=/usr/bin:/bin\n" + commands + "\n";
    ASSERT_EQ(chmod(folder_.write("bin/" + name, script).c_str(), 0700), 0);
  }

  // One that writes down what it was called with, and then runs the commands.
  void addRecorder(const std::string& name, const std::string& commands = "") const {
    addProgram(name, "printf '%s\\n' \"$@\" > '" + folder_.file(name) + "'\n" + commands);
  }

  // What a recorder wrote.
  std::string recorded(const std::string& name) const {
    std::ifstream file(folder_.file(name));
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "not called";
  }

  // Makes the desktop know a browser.
  void addDesktopEntry() const {
    addRecorder("browser");
    std::filesystem::create_directories(folder_.file("share/applications"));
    folder_.write("share/applications/b.desktop", "[Desktop Entry]\nExec=browser %u\n");
    folder_.write("share/applications/mimeinfo.cache",
                  "[MIME Cache]\nx-scheme-handler/https=b.desktop;\n");
  }

  // Opens the address with the patience of a slow machine: a handler that ends has ended.
  bool open(const std::vector<std::string>& variables, const char* url = kURL) const {
    qvr::DesktopWorkspaceOptions options = optionsWith(variables);
    options.patience = options.searchPatience = std::chrono::minutes(1);
    return open(options, url);
  }

  static bool open(const qvr::DesktopWorkspaceOptions& options, const char* url = kURL) {
    return qvr::makeRef<qvr::DesktopWorkspace>(options)->openURL(*qvr::URL::URLWithString(url));
  }

  // A desktop of the test's own, with the usual patience.
  qvr::DesktopWorkspaceOptions optionsWith(std::vector<std::string> variables) const {
    variables.push_back("PATH=relative::" + folder_.file("bin"));
    variables.push_back("HOME=" + folder_.file("home"));
    variables.push_back("XDG_DATA_DIRS=" + folder_.file("share"));
    variables.push_back("XDG_CONFIG_DIRS=" + folder_.file("xdg"));
    qvr::DesktopWorkspaceOptions options{qvr::Environment(std::move(variables))};
    options.sandboxMark = "/nonexistent";
    return options;
  }

  const support::TemporaryFolder folder_;
};

TEST_F(DesktopWorkspaceTest, HandsTheAddressToTheDesktop) {
  addRecorder("xdg-open");
  EXPECT_TRUE(open({"DISPLAY=:0"}));
  EXPECT_EQ(recorded("xdg-open"), std::string(kURL) + "\n");
}

TEST_F(DesktopWorkspaceTest, EitherOfTwoVariablesTellsADisplay) {
  addRecorder("xdg-open");
  for (const char* variable : {"DISPLAY=:0", "WAYLAND_DISPLAY=wayland-0"}) {
    EXPECT_TRUE(open({variable})) << variable;
  }
}

TEST_F(DesktopWorkspaceTest, WithoutADisplayTheDesktopIsNotAsked) {
  addRecorder("xdg-open");
  addRecorder("firefox");
  EXPECT_TRUE(open({"BROWSER=firefox"}));
  EXPECT_EQ(recorded("firefox"), std::string(kURL) + "\n");
  EXPECT_EQ(recorded("xdg-open"), "not called");
}

TEST_F(DesktopWorkspaceTest, WithoutADisplayAndABrowserNothingIsStarted) {
  addRecorder("xdg-open");
  EXPECT_FALSE(open({}));
  EXPECT_FALSE(open({"DISPLAY=", "WAYLAND_DISPLAY=", "BROWSER=", "NOT_DISPLAY=1"}));
  EXPECT_EQ(recorded("xdg-open"), "not called");
}

TEST_F(DesktopWorkspaceTest, OpensNothingButWebAddresses) {
  addRecorder("xdg-open");
  for (const char* url : {"file:///etc/passwd", "javascript:alert(1)", "com.example:/auth", "/path",
                          "--help", "httpss://h/", ":/x"}) {
    EXPECT_FALSE(open({"DISPLAY=:0"}, url)) << url;
  }
  EXPECT_EQ(recorded("xdg-open"), "not called");
  EXPECT_TRUE(open({"DISPLAY=:0"}, "HTTP://localhost/"));
}

TEST(MakeWorkspaceTest, RefusesWhatIsNoWebAddressInAnyEnvironment) {
  EXPECT_FALSE(qvr::makeWorkspace()->openURL(*qvr::URL::URLWithString("com.example:/auth")));
}

TEST_F(DesktopWorkspaceTest, HandlerThatFailsAtOnceIsAFailure) {
  addProgram("xdg-open", "exit 3");
  EXPECT_FALSE(open({"DISPLAY=:0"}));
  addProgram("xdg-open", "kill -KILL $$");
  EXPECT_FALSE(open({"DISPLAY=:0"}));
}

TEST_F(DesktopWorkspaceTest, HandlerThatCannotBeStartedIsAFailure) {
  const std::string path = folder_.write("bin/xdg-open", "#!/no/such/interpreter\n");
  ASSERT_EQ(chmod(path.c_str(), 0700), 0);
  EXPECT_FALSE(open({"DISPLAY=:0"}));
}

// The ends of a pipe with a name: a handler waits on it for as long as the test likes.
class Gate {
 public:
  explicit Gate(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    // Both directions, so that neither side waits for the other to open it.
    file_ = qvr::FileDescriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  }
  void release() { EXPECT_EQ(write(file_.get(), "\n", 1), 1); }

  // Waits until the other side has written a byte.
  bool hears() {
    pollfd watched{file_.get(), POLLIN, 0};
    char byte;
    return poll(&watched, 1, 30'000) == 1 && read(file_.get(), &byte, 1) == 1;
  }

 private:
  qvr::FileDescriptor file_;
};

TEST_F(DesktopWorkspaceTest, HandlerThatIsStillRunningHasTakenTheAddress) {
  Gate gate(folder_.file("gate"));
  Gate done(folder_.file("done"));
  addDesktopEntry();
  addProgram("xdg-open", "read line < '" + folder_.file("gate") + "'\necho > '" +
                             folder_.file("done") + "'\nexit 1");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(open(optionsWith({"DISPLAY=:0"})));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  gate.release();
  EXPECT_TRUE(done.hears());  // it was left to go its own way
}

TEST_F(DesktopWorkspaceTest, WhereNoBrowserIsEvidentAFailureMayTakeLonger) {
  Gate gate(folder_.file("gate"));
  addProgram("xdg-open", "read line < '" + folder_.file("gate") + "'\nexit 3");
  qvr::DesktopWorkspaceOptions options = optionsWith({"DISPLAY=:0"});
  options.patience = std::chrono::milliseconds(0);
  options.searchPatience = std::chrono::minutes(1);
  gate.release();
  EXPECT_FALSE(open(options));
}

TEST_F(DesktopWorkspaceTest, WhereABrowserIsEvidentTheDesktopComesBeforeTheVariable) {
  addDesktopEntry();
  addRecorder("xdg-open");
  addRecorder("firefox");
  EXPECT_TRUE(open({"DISPLAY=:0", "BROWSER=firefox"}));
  EXPECT_EQ(recorded("xdg-open"), std::string(kURL) + "\n");
  EXPECT_EQ(recorded("firefox"), "not called");
}

TEST_F(DesktopWorkspaceTest, WhereNoBrowserIsEvidentTheVariableComesFirst) {
  addRecorder("xdg-open");
  addRecorder("firefox");
  EXPECT_TRUE(open({"DISPLAY=:0", "BROWSER=firefox"}));
  EXPECT_EQ(recorded("firefox"), std::string(kURL) + "\n");
  EXPECT_EQ(recorded("xdg-open"), "not called");
}

TEST_F(DesktopWorkspaceTest, WhereTheDesktopFailsTheVariableServes) {
  addDesktopEntry();
  addRecorder("xdg-open", "exit 4");
  addRecorder("firefox");
  EXPECT_TRUE(open({"DISPLAY=:0", "BROWSER=firefox"}));
  EXPECT_EQ(recorded("xdg-open"), std::string(kURL) + "\n");
  EXPECT_EQ(recorded("firefox"), std::string(kURL) + "\n");
}

TEST_F(DesktopWorkspaceTest, HandlerThatSucceedsIsNotWaitedForAnyLonger) {
  addProgram("xdg-open", "exit 0");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(open({"DISPLAY=:0"}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST_F(DesktopWorkspaceTest, HandlerHasASessionOfItsOwnAndNoDescriptorOfOurs) {
  const qvr::FileDescriptor inheritable(dup(STDERR_FILENO));
  ASSERT_TRUE(inheritable);
  addProgram("xdg-open", "exec > '" + folder_.file("seen") + R"('
read pid name state parent group session rest < /proc/$$/stat
test "$session" = "$pid" && echo own session
for stream in 0 2; do readlink /proc/$$/fd/$stream; done
)" + "test -e /proc/$$/fd/" + std::to_string(inheritable.get()) +
                             " && echo leaked\nexit 0");
  EXPECT_TRUE(open({"DISPLAY=:0"}));
  EXPECT_EQ(recorded("seen"), "own session\n/dev/null\n/dev/null\n");
}

TEST_F(DesktopWorkspaceTest, HandlerInheritsTheEnvironment) {
  addProgram("xdg-open", "echo \"$DISPLAY $XAUTHORITY\" > '" + folder_.file("seen") + "'");
  EXPECT_TRUE(open({"DISPLAY=:0", "XAUTHORITY=/a"}));
  EXPECT_EQ(recorded("seen"), ":0 /a\n");
}

TEST_F(DesktopWorkspaceTest, HandlerThatEndedLeavesNoZombie) {
  addProgram("xdg-open", "echo $$ > '" + folder_.file("pid") + "'");
  EXPECT_TRUE(open({"DISPLAY=:0"}));
  EXPECT_EQ(kill(std::stoi(recorded("pid")), 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST_F(DesktopWorkspaceTest, BrowserVariableServesWhereThereIsNoDesktopHandler) {
  addRecorder("firefox");
  EXPECT_TRUE(open({"BROWSER=firefox"}));
  EXPECT_EQ(recorded("firefox"), std::string(kURL) + "\n");
}

TEST_F(DesktopWorkspaceTest, BrowserCommandsAreTriedInOrderUntilOneTakesIt) {
  addRecorder("broken", "exit 1");
  addRecorder("works");
  addRecorder("unused");
  EXPECT_TRUE(open({"BROWSER=missing::broken:works:unused"}));
  EXPECT_NE(recorded("broken"), "not called");
  EXPECT_EQ(recorded("works"), std::string(kURL) + "\n");
  EXPECT_EQ(recorded("unused"), "not called");
}

TEST_F(DesktopWorkspaceTest, BrowserCommandPlacesTheAddressAndNoShellReadsIt) {
  addRecorder("b");
  EXPECT_TRUE(open({"BROWSER=b  --new\t--app=%s $HOME ;"}));
  EXPECT_EQ(recorded("b"), "--new\n--app=" + std::string(kURL) + "\n$HOME\n;\n");
}

TEST_F(DesktopWorkspaceTest, BrowserMayBeNamedByItsPath) {
  addRecorder("b");
  EXPECT_TRUE(open({"BROWSER=" + folder_.file("bin/b")}));
  EXPECT_EQ(recorded("b"), std::string(kURL) + "\n");
}

TEST_F(DesktopWorkspaceTest, NoHandlerAndNoBrowserThatWorksIsAFailure) {
  addRecorder("broken", "exit 1");
  EXPECT_FALSE(open({"DISPLAY=:0"}));
  EXPECT_FALSE(open({"DISPLAY=:0", "BROWSER= : \t:"}));
  EXPECT_FALSE(open({"BROWSER=missing:broken"}));
}

TEST_F(DesktopWorkspaceTest, ProgramsThatCannotRunAreNotTheHandler) {
  folder_.write("bin/xdg-open", "not executable");
  addRecorder("firefox");
  EXPECT_TRUE(open({"BROWSER=firefox"}));
  std::filesystem::remove(folder_.file("bin/xdg-open"));
  std::filesystem::create_directory(folder_.file("bin/xdg-open"));
  EXPECT_TRUE(open({"BROWSER=firefox"}));
}

}  // namespace
}  // namespace ports_test
