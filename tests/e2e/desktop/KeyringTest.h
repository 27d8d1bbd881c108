// A keyring daemon of its own for each test, and the library's keychain on it. Every test of the
// suites runs against each daemon.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/e2e/desktop/KeyringDaemon.h"
#include "tests/ports/helpers/KeychainQueries.h"
#include "tests/support/ChildProcess.h"

namespace e2e {

class KeyringTest : public testing::TestWithParam<KeyringKind> {
 protected:
  using Kind = qvr::SecretServiceState::Kind;
  using Item = ports_test::Item;

  KeyringTest();
  ~KeyringTest() override;

  bool isGnomeKeyring() const { return GetParam() == KeyringKind::kGnomeKeyring; }
  bool isKWallet() const { return GetParam() == KeyringKind::kKWallet; }
  bool isKeePassXC() const { return GetParam() == KeyringKind::kKeePassXC; }

  // What a user waits for is short here.
  qvr::SecretServiceOptions options() const;
  qvr::SecretServiceState examine() const { return qvr::examineSecretService(options()); }

  KeyringDaemon& daemon() { return *daemon_; }
  KeyringClient& client() { return daemon_->client(); }

  // The item as the library names one, seen by the library and counted by another program.
  Item item(const std::string& account = "user@example.com") const {
    return {*keychain_, kService, account};
  }
  static qvr::KeychainItemName nameOf(const Item& item) { return {item.service, item.account}; }
  std::size_t count(const Item& item) { return client().find(nameOf(item)).size(); }

  // Runs secret-tool in the session, and answers what it prints; "exit N" when it fails.
  std::string secretTool(std::vector<std::string> arguments) const;

  // Adds the item and waits until it is in the keyring's file.
  void addDurably(const Item& added, const std::string& text);

  std::vector<qvr::KeychainItemName> list() const;

  static constexpr const char* kService = "org.example.Mail.Google.OAuth2Token";

 private:
  const support::TemporaryFolder folder_{};
  const std::unique_ptr<KeyringDaemon> daemon_;

 protected:
  const qvr::Ref<qvr::KeychainItems> keychain_;
};

// Names a test by its daemon.
std::string keyringName(const testing::TestParamInfo<KeyringKind>& info);

}  // namespace e2e

#define QVR_TEST_EVERY_KEYRING(suite)                                                              \
  INSTANTIATE_TEST_SUITE_P(                                                                        \
      Desktop, suite,                                                                              \
      testing::Values(KeyringKind::kGnomeKeyring, KeyringKind::kKWallet, KeyringKind::kKeePassXC), \
      keyringName)
