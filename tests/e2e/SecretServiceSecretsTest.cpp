// The desktop's keyring: tokens go there and back, and a locked one gives none away.

#include "tests/e2e/SecretsTest.h"
#include "tests/support/FakeSecretService.h"
#include "tests/support/PrivateBus.h"

namespace e2e {
namespace {

class SecretsKeyringTest : public SecretsTest {
 protected:
  RunOptions onTheDesktop() const {
    RunOptions options;
    options.environment = {{"DBUS_SESSION_BUS_ADDRESS", bus.address()}};
    return options;
  }

  const support::PrivateBus bus{};
  support::FakeSecretService keyring{bus.address()};
};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsKeyringTest, testing::Values("Google"));

TEST_P(SecretsKeyringTest, ThatTokensMoveToAndFrom) {
  signInWatched();
  bothWays([this] {
    for (const char* const target : {"secret-service", "file"}) {
      const Result moved = watch({"keychain", "move", target}, onTheDesktop());
      EXPECT_EQ(moved.status, 0) << moved.error;
      EXPECT_EQ(watch(tokenCommand(), onTheDesktop()).status, 0);
    }
  });
}

TEST_P(SecretsKeyringTest, ThatIsLockedOrGone) {
  signInWatched();
  ASSERT_EQ(watch({"keychain", "move", "secret-service"}, onTheDesktop()).status, 0);
  keyring.with([](support::FakeKeyring& ring) {
    ring.isLocked = true;
    ring.prompt = support::FakeKeyring::Prompt::kDismisses;
  });
  bothWays([this] {
    expectFailure(watch(tokenCommand(), onTheDesktop()));
    expectFailure(watch({"keychain", "move", "file"}, onTheDesktop()));
    watch({"doctor"}, onTheDesktop());
    expectFailure(watch(tokenCommand()));
    expectFailure(watch({"sign-out", provider(), kUser}));
  });
}

}  // namespace
}  // namespace e2e
