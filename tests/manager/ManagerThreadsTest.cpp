// Many threads, real queues: one refresh at a time, and every handler answered once.

#include <algorithm>
#include <atomic>

#include "tests/manager/AutomaticSession.h"
#include "tests/manager/ManagerTest.h"
#include "tests/support/Countdown.h"

namespace {

using support::AutomaticSession;
using support::Countdown;
using support::drain;
using support::kUser;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kRequests = 400;  // of each thread
constexpr std::size_t kHandlers = kThreads * kRequests;

std::string bodyLasting(int seconds, int number) {
  return R"({"access_token":"refreshed )" + std::to_string(number) +
         R"(","token_type":"Bearer","expires_in":)" + std::to_string(seconds) + "}";
}

class ManagerThreadsTest : public support::UnstartedManagerTest {
 protected:
  void startWith(std::function<std::string(int)> body) {
    automatic = qvr::makeRef<AutomaticSession>(std::move(body));
    host.setURLSession(automatic);
    host.setSerialQueueFactory(nullptr);  // real queues
    start();
    put(dueToken());
  }

  // Waits until nothing of the library runs any more: a read may start a refresh, whose answer is
  // stored.
  ~ManagerThreadsTest() override {
    const auto store = QVROAuth2Keychain::defaultOAuth2Keychain();
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(drain(QVROAuth2Keychain::queue()));
      EXPECT_TRUE(drain(store->delegateQueue()));
      EXPECT_TRUE(drain(automatic->callbackQueue()));
    }
    EXPECT_TRUE(drain(QVROAuth2Keychain::queue()));
    EXPECT_TRUE(drain(store->delegateQueue()));
  }

  QVROAuth2TokenCompletionHandler counting(std::size_t index) {
    return [this, index](const qvr::Ref<QVROAuth2Token>& token, const qvr::ErrorPtr& error) {
      ++calls[index];
      ++(token ? tokens : errors);
      if ((token != nullptr) == (error != nullptr)) ++contradictions;
      answered.arrive();
    };
  }

  // Requests from all threads at once; returns when all are answered.
  void requestFromAllThreads(const std::function<void(std::size_t)>& afterEach = nullptr) {
    support::runOnThreads(kThreads, [&](std::size_t thread) {
      for (std::size_t i = 0; i < kRequests; ++i) {
        manager->requestAccessTokenForProvider(QVROAuth2ProviderGoogle, kUser,
                                               counting(thread * kRequests + i));
        if (afterEach) afterEach(i);
      }
    });
    ASSERT_TRUE(answered.wait());
  }

  // All queued work is done, so that nobody can be called once more.
  void expectEveryHandlerCalledOnce() {
    EXPECT_TRUE(drain(QVROAuth2Keychain::queue()));
    EXPECT_TRUE(drain(QVROAuth2Keychain::defaultOAuth2Keychain()->delegateQueue()));
    EXPECT_TRUE(drain(automatic->callbackQueue()));
    EXPECT_TRUE(std::all_of(calls.begin(), calls.end(), [](const auto& n) { return n == 1; }));
    EXPECT_EQ(tokens + errors, kHandlers);
    EXPECT_EQ(contradictions, 0);
  }

  qvr::Ref<AutomaticSession> automatic;
  std::vector<std::atomic<int>> calls = std::vector<std::atomic<int>>(kHandlers);
  std::atomic<std::size_t> tokens{0};
  std::atomic<std::size_t> errors{0};
  std::atomic<std::size_t> contradictions{0};
  Countdown answered{kHandlers};
};

TEST_F(ManagerThreadsTest, OneDueTokenIsRefreshedOnce) {
  startWith([](int number) { return bodyLasting(3600, number); });
  requestFromAllThreads();
  expectEveryHandlerCalledOnce();
  EXPECT_EQ(automatic->answered(), 1);
  EXPECT_EQ(tokens, kHandlers);
  EXPECT_EQ(storedAccessToken(), "refreshed 1");
}

TEST_F(ManagerThreadsTest, TokensThatAreDueAtOnceAreRefreshedOneAtATime) {
  startWith([](int number) { return bodyLasting(0, number); });
  requestFromAllThreads();
  expectEveryHandlerCalledOnce();
  EXPECT_GE(automatic->answered(), 1);
  EXPECT_EQ(automatic->mostRunning(), 1);
  EXPECT_EQ(tokens, kHandlers);
}

TEST_F(ManagerThreadsTest, FailedRefreshesRunOneAtATimeToo) {
  startWith([](int number) { return number % 3 == 0 ? bodyLasting(0, number) : std::string(); });
  requestFromAllThreads();
  expectEveryHandlerCalledOnce();
  EXPECT_GE(automatic->answered(), 1);
  EXPECT_EQ(automatic->mostRunning(), 1);
}

TEST_F(ManagerThreadsTest, CancellingFromEverywhereLosesNoAnswer) {
  startWith([](int number) { return bodyLasting(0, number); });
  requestFromAllThreads([this](std::size_t i) {
    if (i % 7 == 0) manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, kUser);
  });
  expectEveryHandlerCalledOnce();
  EXPECT_EQ(automatic->mostRunning(), 1);
}

TEST_F(ManagerThreadsTest, KeychainFaultsLoseNoAnswerAndNoToken) {
  startWith([](int number) { return bodyLasting(0, number); });
  const auto callsMade = std::make_shared<std::atomic<unsigned>>(0);
  keychain->failWith([callsMade](const auto&) { return ++*callsMade % 5 == 0 ? -36 : 0; });
  requestFromAllThreads();
  expectEveryHandlerCalledOnce();
  EXPECT_GT(errors, 0);
  EXPECT_NE(storedAccessToken(), "");
  EXPECT_EQ(keychain->itemCount(), 1);
  keychain->failNothing();
}

TEST_F(ManagerThreadsTest, HandlersMayAskAgainFromAnyQueue) {
  startWith([](int number) { return number % 2 == 0 ? bodyLasting(0, number) : std::string(); });
  std::function<void(std::size_t)> ask = [&](std::size_t index) {
    manager->requestAccessTokenForProvider(
        QVROAuth2ProviderGoogle, kUser,
        [&, index, count = counting(index)](const qvr::Ref<QVROAuth2Token>& token,
                                            const qvr::ErrorPtr& error) {
          // Ask before the count, so that the end of the count is the end of all asking.
          if ((index + 1) % kRequests != 0) ask(index + 1);
          count(token, error);
        });
  };
  support::runOnThreads(kThreads, [&](std::size_t thread) { ask(thread * kRequests); });
  ASSERT_TRUE(answered.wait());
  expectEveryHandlerCalledOnce();
}

TEST_F(ManagerThreadsTest, UserNamesAreServedSideBySide) {
  startWith([](int number) { return bodyLasting(3600, number); });
  for (std::size_t i = 0; i < kThreads; ++i)
    put(dueToken(), support::kGoogleService, std::to_string(i).c_str());
  support::runOnThreads(kThreads, [&](std::size_t thread) {
    for (std::size_t i = 0; i < kRequests; ++i) {
      manager->requestAccessTokenForProvider(QVROAuth2ProviderGoogle, std::to_string(thread),
                                             counting(thread * kRequests + i));
    }
  });
  ASSERT_TRUE(answered.wait());
  expectEveryHandlerCalledOnce();
  EXPECT_EQ(automatic->answered(), static_cast<int>(kThreads)) << "one refresh a user name";
  EXPECT_EQ(tokens, kHandlers);
}

}  // namespace
