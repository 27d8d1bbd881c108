// A locked keyring: never "not found", and nothing is lost by it.

#include "tests/e2e/desktop/KeyringTest.h"

namespace e2e {
namespace {

class KeyringLockTest : public KeyringTest {
 protected:
  void SetUp() override {
    daemon().create();
    ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  }

  // Every operation, on an item that is there and on one that is not.
  static void expectLocked(qvr::KeychainItems& keychain) {
    for (const char* account : {"user@example.com", "nobody@example.com"}) {
      const Item tried{keychain, kService, account};
      EXPECT_EQ(tried.probe(), qvr::errSecInteractionNotAllowed) << account;
      EXPECT_EQ(tried.text(), "status -25308") << account;
      EXPECT_EQ(tried.add("lost"), qvr::errSecInteractionNotAllowed) << account;
      EXPECT_EQ(tried.update("lost"), qvr::errSecInteractionNotAllowed) << account;
      EXPECT_EQ(tried.remove(), qvr::errSecInteractionNotAllowed) << account;
    }
    std::vector<qvr::KeychainItemName> names = {{"un", "touched"}};
    EXPECT_EQ(keychain.list(&names), qvr::errSecInteractionNotAllowed);
    EXPECT_EQ(names.size(), 1u);
  }

  void expectIntact() {
    EXPECT_EQ(examine().kind, Kind::kReady);
    EXPECT_EQ(item().text(), "secret");
    EXPECT_EQ(list(), std::vector{nameOf(item())});
    EXPECT_EQ(count(item()), 1u);
  }

  qvr::SecretServiceOptions withoutPrompt() const {
    qvr::SecretServiceOptions result = options();
    result.mayPrompt = false;
    return result;
  }
};

TEST_P(KeyringLockTest, KeyringThatMayNotAskIsLockedForEveryOperation) {
  const auto keychain = qvr::makeSecretServiceKeychain(withoutPrompt());
  daemon().lock();
  EXPECT_EQ(examine().kind, Kind::kLocked);
  EXPECT_FALSE(examine().reason.empty());
  expectLocked(*keychain);
  daemon().unlock();
  EXPECT_EQ((Item{*keychain, kService}.text()), "secret");
  expectIntact();
}

// A dialog that nobody answers, or nobody who could show one.
TEST_P(KeyringLockTest, KeyringWithNobodyToAskIsLockedForEveryOperation) {
  daemon().lock();
  expectLocked(*keychain_);
  EXPECT_EQ(examine().kind, Kind::kLocked);
}

// While KWallet's dialog waits, nothing but an answer to it opens the wallet: here it ends with the
// daemon.
TEST_P(KeyringLockTest, KeyringThatWasAskedAboutInVainIsWhole) {
  daemon().lock();
  EXPECT_EQ(item().text(), "status -25308");
  if (isKWallet()) {
    daemon().kill();
    daemon().startOpen();
  } else {
    daemon().unlock();
  }
  expectIntact();
}

TEST_P(KeyringLockTest, KeyringThatIsLockedFromTheStartIsLockedForEveryOperation) {
  daemon().lock();  // writes what is not on disk yet
  daemon().kill();
  daemon().startLocked();
  EXPECT_EQ(examine().kind, Kind::kLocked);
  expectLocked(*qvr::makeSecretServiceKeychain(withoutPrompt()));
  daemon().unlock();
  expectIntact();
}

QVR_TEST_EVERY_KEYRING(KeyringLockTest);

}  // namespace
}  // namespace e2e
