#include "tests/e2e/desktop/KeyringTest.h"

#include <cstdlib>

namespace e2e {

// The keychain's own lock file goes into the session's runtime folder, too.
KeyringTest::KeyringTest()
    : daemon_(makeKeyringDaemon(GetParam(), folder_)),
      keychain_(qvr::makeSecretServiceKeychain(options())) {
  setenv("XDG_RUNTIME_DIR", folder_.file("run").c_str(), 1);
}

KeyringTest::~KeyringTest() {
  unsetenv("XDG_RUNTIME_DIR");
}

qvr::SecretServiceOptions KeyringTest::options() const {
  qvr::SecretServiceOptions result;
  result.busAddress = daemon_->busAddress();
  result.promptTimeoutSeconds = 0.5;
  return result;
}

std::string KeyringTest::secretTool(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "secret-tool");
  support::ChildProcess process({arguments, daemon_->environment()});
  process.closeInput();
  const int status = process.wait();
  return status == 0 ? process.output() : "exit " + std::to_string(status) + process.error();
}

void KeyringTest::addDurably(const Item& added, const std::string& text) {
  const std::string before = daemon_->content();
  ASSERT_EQ(added.add(text), qvr::errSecSuccess);
  ASSERT_TRUE(daemon_->waitUntilStored(before));
}

std::vector<qvr::KeychainItemName> KeyringTest::list() const {
  std::vector<qvr::KeychainItemName> names;
  EXPECT_EQ(keychain_->list(&names), qvr::errSecSuccess);
  return names;
}

std::string keyringName(const testing::TestParamInfo<KeyringKind>& info) {
  switch (info.param) {
    case KeyringKind::kGnomeKeyring:
      return "GnomeKeyring";
    case KeyringKind::kKWallet:
      return "KWallet";
    case KeyringKind::kKeePassXC:
      return "KeePassXC";
  }
  return {};
}

}  // namespace e2e
