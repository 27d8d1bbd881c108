#include "tests/e2e/desktop/BrowserDesktop.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace e2e {

namespace {

// The processes that this one is the parent of.
std::set<pid_t> children() {
  std::ifstream file("/proc/self/task/" + std::to_string(getpid()) + "/children");
  return {std::istream_iterator<pid_t>(file), std::istream_iterator<pid_t>()};
}

std::map<std::string, std::string> privateEnvironment(const support::TemporaryFolder& folder) {
  return {{"HOME", folder.file("home")},
          {"XDG_CONFIG_HOME", folder.file("config")},
          {"XDG_DATA_HOME", folder.file("data")},
          {"XDG_CACHE_HOME", folder.file("cache")},
          {"XDG_RUNTIME_DIR", folder.file("run")},
          {"XDG_CURRENT_DESKTOP", "X-Generic"},
          {"XDG_SESSION_TYPE", "x11"},
          {"BROWSER", ""}};
}

}  // namespace

Orphanage::Orphanage() : before_(children()) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

// A process that ends leaves its own children here, hence the rounds.
Orphanage::~Orphanage() {
  for (;;) {
    std::vector<pid_t> left;
    std::ranges::set_difference(children(), before_, std::back_inserter(left));
    if (left.empty()) break;
    for (const pid_t pid : left) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
  }
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

BrowserDesktop::BrowserDesktop(const support::TemporaryFolder& folder)
    : environment_(privateEnvironment(folder)) {
  for (const char* name : {"home", "config", "data", "cache", "run"}) {
    std::filesystem::create_directories(folder.file(name));
    std::filesystem::permissions(folder.file(name), std::filesystem::perms::owner_all);
  }
  startScreen();
  startBus(folder);
  openKeyring();
}

std::unique_ptr<support::ChildProcess> BrowserDesktop::start(
    const std::vector<std::string>& arguments) const {
  return std::make_unique<support::ChildProcess>(
      support::ChildProcess::Options{arguments, environment_});
}

std::unique_ptr<support::ChildProcess> BrowserDesktop::watchBus() const {
  auto watch = start({"dbus-monitor", "--address", bus_->address(),
                      "interface='org.freedesktop.Application',member='Open'"});
  if (!watch->waitForOutput("NameLost")) {  // a monitor has no name any more
    throw std::runtime_error("dbus-monitor does not start: " + watch->error());
  }
  return watch;
}

// Xvfb takes the first display number that is free, and says which.
void BrowserDesktop::startScreen() {
  screen_ = start({"setpriv", "--pdeathsig", "KILL", "Xvfb", "-displayfd", "1", "-screen", "0",
                   "1280x1024x24", "-nolisten", "tcp"});
  if (!screen_->waitForOutput("\n")) {
    throw std::runtime_error("Xvfb does not start: " + screen_->error());
  }
  const std::string& number = screen_->output();
  environment_["DISPLAY"] = ":" + number.substr(0, number.find('\n'));
}

void BrowserDesktop::startBus(const support::TemporaryFolder& folder) {
  const std::string services = folder.file("data/dbus-1/services");
  std::filesystem::create_directories(services);
  bus_ = std::make_unique<support::PrivateBus>(services, environment_);
  environment_["DBUS_SESSION_BUS_ADDRESS"] = bus_->address();
}

void BrowserDesktop::openKeyring() {
  keyring_ = start({"setpriv", "--pdeathsig", "KILL", "gnome-keyring-daemon", "--foreground",
                    "--unlock", "--components=secrets"});
  keyring_->writeInput("the keyring's password");
  keyring_->closeInput();
  const auto waiting =
      start({"gdbus", "wait", "--session", "--timeout", "30", "org.freedesktop.secrets"});
  if (waiting->wait() != 0) {
    throw std::runtime_error("gnome-keyring does not start: " + keyring_->error());
  }
}

}  // namespace e2e
