// Faults in every keychain call in turn: every handler is answered once, and nothing stored is
// lost.

#include "tests/manager/ManagerTest.h"

namespace {

using support::kRefreshedBody;
using support::kUser;

constexpr std::int32_t kFault = -36;

class FaultInjectionTest : public support::ManagerTest {
 protected:
  // Fails the call with this number, counted from 1, and lets all others through.
  void failCall(int number) {
    callsMade = std::make_shared<int>(0);
    keychain->failWith(
        [calls = callsMade, number](const auto&) { return ++*calls == number ? kFault : 0; });
  }

  // Repeats the scenario, failing call 1, 2, 3... until the fault no longer fires; the number of
  // faults that did.
  int failEachCallOf(const std::function<void(bool faulted)>& check,
                     const std::function<void()>& scenario) {
    for (int number = 1;; ++number) {
      SCOPED_TRACE("failing keychain call " + std::to_string(number));
      answers.clear();
      keychain->failNothing();
      put(dueToken());
      failCall(number);
      scenario();
      const bool faulted = *callsMade >= number;
      keychain->failNothing();
      check(faulted);
      if (!faulted || HasFatalFailure()) return number - 1;
    }
  }

  // Answers the running refresh, if there is one.
  void answerRefresh() {
    if (session->tasks().empty()) return;
    if (session->last().state() != qvr::URLSessionDataTask::State::kRunning) return;
    session->last().answer(200, kRefreshedBody);
  }

  void expectEachAnsweredOnce(const std::vector<std::string>& names) const {
    std::vector<std::string> answered;
    for (const support::Answer& answer : answers) {
      answered.push_back(answer.name);
      EXPECT_NE(answer.token == nullptr, answer.error == nullptr) << answer.name;
    }
    EXPECT_THAT(answered, testing::UnorderedElementsAreArray(names));
  }

  void expectNothingLost() const {
    EXPECT_THAT(storedAccessToken(), testing::AnyOf("due", "refreshed"));
    EXPECT_EQ(keychain->itemCount(), 1);
  }

  // With the faults gone, the manager serves the token as if nothing had been.
  void expectUsable() {
    answers.clear();
    request("later");
    runKeychain();
    answerRefresh();
    runAll();
    expectEachAnsweredOnce({"later"});
    EXPECT_EQ(storedAccessToken(), "refreshed");
  }

  std::shared_ptr<int> callsMade;
};

TEST_F(FaultInjectionTest, OneRequest) {
  const int faults = failEachCallOf(
      [this](bool faulted) {
        expectEachAnsweredOnce({"a"});
        ASSERT_FALSE(answers.empty());
        EXPECT_EQ(answers[0].token == nullptr, faulted);
        EXPECT_EQ(storedAccessToken(), faulted ? "due" : "refreshed");
        expectNothingLost();
        expectUsable();
      },
      [this] {
        request("a");
        runKeychain();
        answerRefresh();
        runAll();
      });
  EXPECT_EQ(faults, 3) << "the read, the probe and the update";
}

TEST_F(FaultInjectionTest, RequestsBeforeDuringAndAfterARefresh) {
  const int faults = failEachCallOf(
      [this](bool) {
        expectEachAnsweredOnce({"a", "b", "c", "d"});
        expectNothingLost();
        expectUsable();
      },
      [this] {
        request("a");
        request("b");
        runKeychain();
        request("c");
        answerRefresh();
        callbackQueue->runOne();
        request("d");
        runKeychain();
        answerRefresh();  // of a refresh that the fault made necessary
        runAll();
      });
  EXPECT_GE(faults, 6);
}

TEST_F(FaultInjectionTest, AskingStoringAndReading) {
  std::vector<bool> found;
  const int faults = failEachCallOf(
      [&](bool) {
        expectEachAnsweredOnce({"read"});
        EXPECT_EQ(found.size(), 2) << "the query and the store were answered once each";
        found.clear();
        expectNothingLost();
      },
      [&] {
        manager->hasAccessTokenForProvider(QVROAuth2ProviderGoogle, kUser,
                                           [&](bool hasToken) { found.push_back(hasToken); });
        manager->setTokenToKeychain(
            freshToken("refreshed"), QVROAuth2ProviderGoogle, kUser,
            [&](const qvr::ErrorPtr& error) { found.push_back(error == nullptr); });
        manager->getTokenFromKeychainForProvider(QVROAuth2ProviderGoogle, kUser, note("read"));
        runAll();
      });
  EXPECT_EQ(faults, 4) << "two reads, the probe and the update";
}

TEST_F(FaultInjectionTest, TheFirstToken) {
  for (int number = 1; number <= 2; ++number) {
    failCall(number);
    qvr::ErrorPtr stored;
    int calls = 0;
    manager->setTokenToKeychain(freshToken(), QVROAuth2ProviderGoogle, kUser,
                                [&](const qvr::ErrorPtr& error) {
                                  stored = error;
                                  ++calls;
                                });
    runAll();
    EXPECT_EQ(calls, 1);
    ASSERT_TRUE(stored);
    EXPECT_TRUE(stored->is(qvr::NSOSStatusErrorDomain, kFault));
    EXPECT_EQ(keychain->itemCount(), 0) << "nothing half made is left";
  }
}

TEST_F(FaultInjectionTest, AnItemThatAppearsBetweenProbeAndAdditionIsNotOverwritten) {
  keychain->onCall([this](const auto& call) {
    if (call.operation == "add") put(freshToken("by another process"));
  });
  qvr::ErrorPtr stored;
  manager->setTokenToKeychain(freshToken("ours"), QVROAuth2ProviderGoogle, kUser,
                              [&](const qvr::ErrorPtr& error) { stored = error; });
  runAll();
  ASSERT_TRUE(stored);
  EXPECT_TRUE(stored->is(qvr::NSOSStatusErrorDomain, qvr::errSecDuplicateItem));
  EXPECT_EQ(storedAccessToken(), "by another process");
}

}  // namespace
