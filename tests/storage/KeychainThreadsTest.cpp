// The asynchronous operations on real queues and from many threads.

#include <atomic>
#include <mutex>

#include "tests/storage/KeychainTest.h"
#include "tests/support/Countdown.h"

namespace {

using support::bytes;
using support::Countdown;
using support::drain;
using support::kAccount;
using support::kService;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kRequests = 250;  // of each thread

class KeychainThreadsTest : public support::KeychainTest {
 protected:
  KeychainThreadsTest() {
    host.setSerialQueueFactory(nullptr);
    installHost();
    store = QVROAuth2Keychain::defaultOAuth2Keychain();
  }

  // Waits until nothing of the library runs any more.
  ~KeychainThreadsTest() override {
    EXPECT_TRUE(drain(QVROAuth2Keychain::queue()));
    EXPECT_TRUE(drain(store->delegateQueue()));
  }

  qvr::Ref<QVROAuth2Keychain> store;
};

TEST_F(KeychainThreadsTest, AsynchronousOperationsRunOneAtATime) {
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  keychain->onCall([&](const auto&) {
    if (++inside != 1) ++overlaps;
    std::this_thread::yield();
    --inside;
  });
  Countdown answered(kThreads * kRequests);
  support::runOnThreads(kThreads, [&](std::size_t) {
    const qvr::Ref<QVROAuth2Keychain> own = QVROAuth2Keychain::init();
    for (std::size_t i = 0; i < kRequests; ++i) {
      own->setPasswordData(bytes("data"), kService, kAccount, nullptr,
                           [&](bool, const qvr::ErrorPtr&) { answered.arrive(); });
    }
  });
  EXPECT_TRUE(answered.wait());
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(keychain->count("add"), 1);
  EXPECT_EQ(keychain->count("update"), kThreads * kRequests - 1);
}

TEST_F(KeychainThreadsTest, HandlersRunOneAtATimeInTheOrderOfTheirRequests) {
  std::vector<std::vector<std::size_t>> answered(kThreads);  // guarded by the delegate queue
  bool overlapped = false;
  std::atomic<int> inside{0};
  Countdown done(kThreads * kRequests);
  support::runOnThreads(kThreads, [&](std::size_t thread) {
    for (std::size_t i = 0; i < kRequests; ++i) {
      store->getPasswordDataForService(
          kService, kAccount, nullptr,
          [&, thread, i](const std::optional<qvr::Data>&, const qvr::ErrorPtr&) {
            overlapped |= ++inside != 1;
            answered[thread].push_back(i);
            --inside;
            done.arrive();
          });
    }
  });
  ASSERT_TRUE(done.wait());
  ASSERT_TRUE(drain(store->delegateQueue()));
  EXPECT_FALSE(overlapped);
  for (const std::vector<std::size_t>& numbers : answered) {
    ASSERT_EQ(numbers.size(), kRequests);
    for (std::size_t i = 0; i < kRequests; ++i)
      EXPECT_EQ(numbers[i], i);
  }
}

TEST_F(KeychainThreadsTest, BothPathsTogetherLoseNothing) {
  std::atomic<std::size_t> written{0};
  Countdown answered(kThreads * kRequests);
  support::runOnThreads(kThreads, [&](std::size_t thread) {
    const std::string account = std::to_string(thread);
    for (std::size_t i = 0; i < kRequests; ++i) {
      written += store->setPasswordData(bytes("sync"), kService, account + "s") ? 1 : 0;
      store->setPasswordData(bytes("async"), kService, account + "a", nullptr,
                             [&](bool success, const qvr::ErrorPtr&) {
                               written += success ? 1 : 0;
                               answered.arrive();
                             });
    }
  });
  ASSERT_TRUE(answered.wait());
  EXPECT_EQ(written, 2 * kThreads * kRequests);
  EXPECT_EQ(keychain->itemCount(), 2 * kThreads);
}

// Runs in a process of its own, which the exception ends.
void readAnAbsentAccount() {
  const qvr::ScopedWorld world;
  QVROAuth2Host host;
  host.setKeychainItems(qvr::makeInMemoryKeychain());
  host.install();
  QVROAuth2Keychain::defaultOAuth2Keychain()->getPasswordDataForService(kService, nullptr, nullptr,
                                                                        nullptr);
  (void)drain(QVROAuth2Keychain::queue());
}

TEST(KeychainDeathTest, AnAbsentAccountEndsTheProcessOnTheWorkQueue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(readAnAbsentAccount(), "NSInvalidArgumentException: .*nil account");
}

}  // namespace
