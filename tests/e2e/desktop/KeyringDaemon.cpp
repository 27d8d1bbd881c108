#include "tests/e2e/desktop/KeyringDaemon.h"

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/e2e/desktop/GnomeKeyring.h"
#include "tests/e2e/desktop/KWalletKeyring.h"
#include "tests/e2e/desktop/KeePassXCKeyring.h"

namespace e2e {

namespace {

std::map<std::string, std::string> environmentIn(const support::TemporaryFolder& folder,
                                                 const std::string& busAddress) {
  return {{"DBUS_SESSION_BUS_ADDRESS", busAddress},
          {"HOME", folder.file("home")},
          {"XDG_CONFIG_HOME", folder.file("config")},
          {"XDG_DATA_HOME", folder.file("data")},
          {"XDG_CACHE_HOME", folder.file("cache")},
          {"XDG_RUNTIME_DIR", folder.file("run")},
          {"TMPDIR", folder.file("tmp")},  // KeePassXC looks there whether it is running already
          {"DISPLAY", ""},
          {"WAYLAND_DISPLAY", ""},
          {"QT_QPA_PLATFORM", "offscreen"}};
}

}  // namespace

KeyringDaemon::KeyringDaemon(const support::TemporaryFolder& folder)
    : folder_(folder), environment_(environmentIn(folder, bus_.address())) {
  for (const char* name : {"home", "config", "data", "cache", "run", "tmp"}) {
    std::filesystem::create_directory(folder.file(name));
    std::filesystem::permissions(folder.file(name), std::filesystem::perms::owner_all);
  }
  client_ = std::make_unique<KeyringClient>(bus_.address());
}

std::string KeyringDaemon::content() const {
  std::ifstream stream(file(), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

bool KeyringDaemon::waitUntilStored(const std::string& before) {
  return client_->waitUntil([&] {
    const std::string now = content();
    return !now.empty() && now != before;
  });
}

void KeyringDaemon::kill() {
  process_->signal(SIGKILL);
  process_->wait();
  process_.reset();
  if (!client_->waitUntil([this] { return !client_->hasService(); })) {
    throw std::runtime_error("the killed daemon is still on the bus");
  }
  client_ = std::make_unique<KeyringClient>(bus_.address());  // its session went with the daemon
}

void KeyringDaemon::freeze() {
  process_->signal(SIGSTOP);
}

// The daemon ends with this process, also when that is killed.
void KeyringDaemon::start(const std::vector<std::string>& arguments, const std::string& input) {
  support::ChildProcess::Options options{{"setpriv", "--pdeathsig", "KILL"}, environment_};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  process_ = std::make_unique<support::ChildProcess>(options);
  process_->writeInput(input);
  process_->closeInput();
  if (!client_->waitUntil([this] { return client_->hasService(); })) {
    throw std::runtime_error(arguments.front() + " offers no Secret Service");
  }
}

void KeyringDaemon::run(const std::vector<std::string>& arguments, const std::string& input) {
  support::ChildProcess process({arguments, environment_});
  process.writeInput(input);
  process.closeInput();
  if (process.wait() != 0) {
    throw std::runtime_error(arguments.front() + " failed: " + process.error());
  }
}

void KeyringDaemon::requireLocked(bool locked) {
  if (!client_->waitUntil([&] { return client_->isLocked() == locked; })) {
    throw std::runtime_error(locked ? "the keyring does not lock" : "the keyring does not open");
  }
}

void KeyringDaemon::createEach(const std::vector<StoredItem>& items) {
  for (const StoredItem& item : items)
    client_->create(item, "An item of the test's");
}

std::unique_ptr<KeyringDaemon> makeKeyringDaemon(KeyringKind kind,
                                                 const support::TemporaryFolder& folder) {
  switch (kind) {
    case KeyringKind::kGnomeKeyring:
      return std::make_unique<GnomeKeyring>(folder);
    case KeyringKind::kKWallet:
      return std::make_unique<KWalletKeyring>(folder);
    case KeyringKind::kKeePassXC:
      return std::make_unique<KeePassXCKeyring>(folder);
  }
  throw std::logic_error("no such keyring");
}

}  // namespace e2e
