// What befalls a keyring daemon: it is not there, it dies, it loses its files.

#include <filesystem>
#include <future>

#include "tests/e2e/desktop/KeyringTest.h"

namespace e2e {
namespace {

class KeyringFaultTest : public KeyringTest {
 protected:
  void expectAbsent() {
    EXPECT_EQ(examine().kind, Kind::kAbsent);
    EXPECT_FALSE(examine().reason.empty());
    EXPECT_EQ(item().probe(), qvr::errSecNotAvailable);
    EXPECT_EQ(item().text(), "status -25291");
    EXPECT_EQ(item().add("lost"), qvr::errSecNotAvailable);
    EXPECT_EQ(item().update("lost"), qvr::errSecNotAvailable);
    EXPECT_EQ(item().remove(), qvr::errSecNotAvailable);
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(keychain_->list(&names), qvr::errSecNotAvailable);
  }
};

// Reports the calls of a method as they pass on the bus, answered or not.
class CallWatch {
 public:
  CallWatch(const KeyringDaemon& daemon, const std::string& member)
      : member_("member=" + member),
        monitor_({{"dbus-monitor", "--address", daemon.busAddress(),
                   "type='method_call',member='" + member + "'"},
                  {}}) {
    isReady_ = monitor_.waitForOutput("NameLost");  // its own name: it only listens from then on
  }

  bool waitForCall() { return isReady_ && monitor_.waitForOutput(member_); }

 private:
  const std::string member_;
  support::ChildProcess monitor_;
  bool isReady_ = false;
};

TEST_P(KeyringFaultTest, BusWithoutTheServiceIsNoKeychain) {
  expectAbsent();
  daemon().create();
  ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), "secret");
}

TEST_P(KeyringFaultTest, DaemonKilledBetweenTwoCallsIsNoKeychainUntilItIsBack) {
  daemon().create();
  addDurably(item(), "secret");
  daemon().kill();
  expectAbsent();
  daemon().startOpen();
  EXPECT_EQ(item().text(), "secret");
  EXPECT_EQ(count(item()), 1u);
}

TEST_P(KeyringFaultTest, DaemonRestartedBetweenTwoCallsGoesUnnoticed) {
  daemon().create();
  addDurably(item(), "secret");
  daemon().kill();
  daemon().startOpen();
  EXPECT_EQ(item().update("changed"), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), "changed");
}

TEST_P(KeyringFaultTest, DaemonKilledInTheMiddleOfACallIsNoKeychainLongBeforeTheDeadline) {
  daemon().create();
  addDurably(item(), "secret");
  ASSERT_EQ(item().probe(), qvr::errSecSuccess);
  CallWatch watch(daemon(), "Get");
  daemon().freeze();
  auto read = std::async(std::launch::async, [this] { return item().text(); });
  EXPECT_TRUE(watch.waitForCall());
  daemon().kill();
  ASSERT_EQ(read.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  EXPECT_EQ(read.get(), "status -25291");
  daemon().startOpen();
  EXPECT_EQ(item().text(), "secret");
}

TEST_P(KeyringFaultTest, DaemonThatDoesNotAnswerIsNoKeychainAtTheDeadline) {
  daemon().create();
  qvr::SecretServiceOptions hurried = options();
  hurried.callTimeoutSeconds = 0.3;
  const auto keychain = qvr::makeSecretServiceKeychain(hurried);
  const Item tried{*keychain, kService};
  ASSERT_EQ(tried.probe(), qvr::errSecItemNotFound);
  daemon().freeze();
  EXPECT_EQ(tried.text(), "status -25291");
  EXPECT_EQ(qvr::examineSecretService(hurried).kind, Kind::kAbsent);
}

// The kill may come before the daemon has written, or after it.
TEST_P(KeyringFaultTest, DaemonKilledWhileItReplacesDataKeepsAWholeItem) {
  const std::string before(3000, 'o');
  const std::string after(9000, 'n');
  daemon().create();
  addDurably(item(), before);
  CallWatch watch(daemon(), "SetSecret");
  auto write = std::async(std::launch::async, [&] { return item().update(after); });
  EXPECT_TRUE(watch.waitForCall());
  daemon().kill();
  const std::int32_t status = write.get();
  EXPECT_TRUE(status == qvr::errSecSuccess || status == qvr::errSecNotAvailable) << status;
  daemon().startOpen();
  const std::string found = item().text();
  EXPECT_TRUE(found == before || found == after) << found;
  EXPECT_EQ(count(item()), 1u);
}

// A keyring may remember its name only, when its value had not reached the disk.
TEST_P(KeyringFaultTest, ItemWhoseDaemonDiedAtOnceCanBeWrittenAgain) {
  daemon().create();
  ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  daemon().kill();
  daemon().startOpen();
  const std::int32_t status = item().add("again");
  EXPECT_EQ(status == qvr::errSecDuplicateItem ? item().update("again") : status,
            qvr::errSecSuccess);
  EXPECT_EQ(item().text(), "again");
  EXPECT_EQ(count(item()), 1u);
}

// The daemons go on with what they have in memory, but for gnome-keyring, which may notice at a
// moment of its own: it then has no default keyring. The item is "not found" to none of them.
TEST_P(KeyringFaultTest, KeyringDeletedUnderTheRunningDaemonHasAClearAnswer) {
  daemon().create();
  addDurably(item(), "secret");
  std::filesystem::remove(daemon().file());
  const std::string text = item().text();
  const std::int32_t added = item("second@example.com").add("more");
  const bool mayNotice = isGnomeKeyring();
  EXPECT_TRUE(text == "secret" || (mayNotice && text == "status -25291")) << text;
  EXPECT_TRUE(added == qvr::errSecSuccess || (mayNotice && added == qvr::errSecNotAvailable))
      << added;
}

TEST_P(KeyringFaultTest, KeyringDeletedOnDiskHasAClearAnswerAfterTheNextStart) {
  daemon().create();
  addDurably(item(), "secret");
  daemon().kill();
  std::filesystem::remove(daemon().file());
  daemon().startOnLeftovers();
  if (isGnomeKeyring()) {  // makes a new one
    EXPECT_EQ(item().text(), "status -25300");
    EXPECT_EQ(item().add("anew"), qvr::errSecSuccess);
    EXPECT_EQ(item().text(), "anew");
  } else {  // are there without a keyring
    expectAbsent();
  }
}

QVR_TEST_EVERY_KEYRING(KeyringFaultTest);

}  // namespace
}  // namespace e2e
