// A wallet that was opened at login: KWallet calls it locked until somebody asks for it.

#include "tests/e2e/desktop/KeyringTest.h"

namespace e2e {
namespace {

using KeyringLoginTest = KeyringTest;

TEST_P(KeyringLoginTest, WalletThatWasOpenedAtLoginOpensWithoutADialog) {
  daemon().create();
  daemon().kill();
  daemon().startOnLeftovers();
  EXPECT_EQ(examine().kind, Kind::kLocked);
  bool wasAsked = false;
  qvr::SecretServiceOptions watched = options();
  watched.promptIsShown = [&wasAsked] { wasAsked = true; };
  const auto keychain = qvr::makeSecretServiceKeychain(watched);
  const Item stored{*keychain, kService};
  EXPECT_EQ(stored.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(stored.text(), "secret");
  EXPECT_FALSE(wasAsked);
  EXPECT_EQ(examine().kind, Kind::kReady);
}

INSTANTIATE_TEST_SUITE_P(Desktop, KeyringLoginTest, testing::Values(KeyringKind::kKWallet),
                         keyringName);

}  // namespace
}  // namespace e2e
