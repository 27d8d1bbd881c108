// Who excludes whom: synchronous calls on one instance, and nobody else.

#include <atomic>
#include <thread>

#include "tests/storage/KeychainPrimitives.h"
#include "tests/storage/KeychainTest.h"
#include "tests/support/Countdown.h"

namespace {

using Primitives = QVROAuth2KeychainPrimitives;
using support::bytes;
using support::Countdown;
using support::kAccount;
using support::kService;

class KeychainMonitorTest : public support::KeychainTest {
 protected:
  KeychainMonitorTest() {
    host.setSerialQueueFactory(nullptr);  // real queues
    installHost();
    store = QVROAuth2Keychain::init();
  }

  // True when the two, each on a thread of its own, are inside the keychain at the same moment.
  bool overlap(const std::function<void()>& one, const std::function<void()>& other) {
    Countdown meeting(2);
    std::atomic<int> met{0};
    keychain->onCall([&](const auto&) { met += meeting.meet() ? 1 : 0; });
    support::runOnThreads(2, [&](std::size_t index) { index == 0 ? one() : other(); });
    keychain->onCall(nullptr);
    return met == 2;
  }

  qvr::Ref<QVROAuth2Keychain> store;
};

TEST_F(KeychainMonitorTest, SynchronousCallsOnOneInstanceNeverOverlap) {
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  keychain->onCall([&](const auto&) {
    if (++inside != 1) ++overlaps;
    std::this_thread::yield();
    --inside;
  });
  support::runOnThreads(6, [&](std::size_t index) {
    const std::string account = std::to_string(index);
    for (int i = 0; i < 100; ++i) {
      (void)store->setPasswordData(bytes("data"), kService, account);
      (void)store->passwordDataForService(kService, account);
      (void)store->removePasswordDataForService(kService, account);
    }
  });
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(keychain->calls().size(), 6 * 100 * 4);
}

TEST_F(KeychainMonitorTest, ASetIsNotInterleavedWithAnotherOnTheSameInstance) {
  support::runOnThreads(6, [&](std::size_t) {
    for (int i = 0; i < 100; ++i)
      EXPECT_TRUE(store->setPasswordData(bytes("data"), kService, kAccount));
  });
  EXPECT_EQ(keychain->count("add"), 1) << "probe and addition belong together";
  EXPECT_EQ(keychain->count("update"), 599);
}

TEST_F(KeychainMonitorTest, SynchronousCallsOnTwoInstancesMayOverlap) {
  const qvr::Ref<QVROAuth2Keychain> other = QVROAuth2Keychain::init();
  EXPECT_TRUE(overlap([&] { (void)store->passwordDataForService(kService, kAccount); },
                      [&] { (void)other->passwordDataForService(kService, kAccount); }));
}

TEST_F(KeychainMonitorTest, AnAsynchronousCallDoesNotTakeTheMonitor) {
  EXPECT_TRUE(overlap([&] { (void)store->passwordDataForService(kService, kAccount); },
                      [&] {
                        store->getPasswordDataForService(kService, kAccount, nullptr, nullptr);
                        EXPECT_TRUE(support::drain(QVROAuth2Keychain::queue()));
                      }));
}

TEST_F(KeychainMonitorTest, PrimitivesDoNotTakeTheMonitor) {
  EXPECT_TRUE(overlap([&] { (void)store->passwordDataForService(kService, kAccount); },
                      [&] { (void)Primitives::passwordData(*store, "derived", kAccount); }));
}

TEST_F(KeychainMonitorTest, TheMonitorIsRecursive) {
  bool isOuter = true;
  keychain->onCall([&](const auto&) {
    if (!std::exchange(isOuter, false)) return;
    EXPECT_TRUE(store->setPasswordData(bytes("inner"), kService, kAccount));
  });
  EXPECT_EQ(store->passwordDataForService(kService, kAccount), bytes("inner"));
}

}  // namespace
