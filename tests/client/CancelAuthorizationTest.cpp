// Cancellation, alone and racing redirects: an attempt gets its outcome exactly once.

#include <barrier>
#include <thread>

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/client/TestClients.h"

namespace {

using support::AuthorizationOutcomes;
using support::IsErrorWithoutUserInfo;
using support::MicrosoftClient;
using support::TestClient;
using testing::IsEmpty;

class CancelAuthorizationTest : public support::AuthorizationTest {
 protected:
  void start() { client->requestAuthorizationCode(outcomes.handler()); }

  qvr::Ref<MicrosoftClient> client = qvr::makeRef<MicrosoftClient>();
  AuthorizationOutcomes outcomes;
};

TEST_F(CancelAuthorizationTest, WithNothingPendingChangesNothingAndCallsNothing) {
  client->setCodeVerifier("kept");
  client->cancelRequestAuthorizationCode();
  EXPECT_FALSE(client->isRequestingAuthorization());
  EXPECT_EQ(client->codeVerifier(), "kept");
  EXPECT_EQ(pendingCount(), 0u);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(CancelAuthorizationTest, CallsTheHandlerAndClearsTheState) {
  start();
  client->cancelRequestAuthorizationCode();
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_FALSE(outcomes.only().response);
  EXPECT_THAT(outcomes.only().error, IsErrorWithoutUserInfo("NSURLErrorDomain", -1012));
  EXPECT_FALSE(client->isRequestingAuthorization());
  EXPECT_EQ(pendingCount(), 0u);
}

TEST_F(CancelAuthorizationTest, TheStateIsClearBeforeTheHandlerSeesTheError) {
  bool wasRequesting = true;
  client->requestAuthorizationCode(
      [&](auto, auto) { wasRequesting = client->isRequestingAuthorization(); });
  client->cancelRequestAuthorizationCode();
  EXPECT_FALSE(wasRequesting);
}

TEST_F(CancelAuthorizationTest, ASecondCancellationDoesNothing) {
  start();
  client->cancelRequestAuthorizationCode();
  client->cancelRequestAuthorizationCode();
  EXPECT_EQ(outcomes.count(), 1u);
}

TEST_F(CancelAuthorizationTest, ARedirectThatComesLaterIsIgnored) {
  start();
  const std::string url = microsoftRedirect(client->state());
  client->cancelRequestAuthorizationCode();
  deliver(url);
  EXPECT_EQ(outcomes.count(), 1u);
  EXPECT_TRUE(outcomes.only().error);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(CancelAuthorizationTest, AfterTheRedirectThereIsNothingToCancel) {
  start();
  deliver(microsoftRedirect(client->state()));
  client->cancelRequestAuthorizationCode();
  EXPECT_EQ(outcomes.code(), "c");
}

TEST_F(CancelAuthorizationTest, OtherAttemptsStayPending) {
  const auto other = qvr::makeRef<MicrosoftClient>();
  AuthorizationOutcomes otherOutcomes;
  start();
  other->requestAuthorizationCode(otherOutcomes.handler());
  client->cancelRequestAuthorizationCode();
  EXPECT_EQ(otherOutcomes.count(), 0u);
  deliver(microsoftRedirect(other->state()));
  EXPECT_EQ(otherOutcomes.code(), "c");
}

TEST_F(CancelAuthorizationTest, AStateWithoutAStoredHandlerKeepsItsValue) {
  client->setState("stuck");
  client->cancelRequestAuthorizationCode();
  EXPECT_EQ(client->state(), "stuck");
  EXPECT_TRUE(client->isRequestingAuthorization());
}

TEST_F(CancelAuthorizationTest, CancellingAfterTheExceptionOfAMissingURLDoesNothing) {
  const auto broken = qvr::makeRef<TestClient>();
  broken->authorization = std::nullopt;
  EXPECT_THROW(broken->requestAuthorizationCode(outcomes.handler()),
               qvr::InternalInconsistencyException);
  const qvr::Text stuck = broken->state();
  broken->cancelRequestAuthorizationCode();
  EXPECT_EQ(broken->state(), stuck);
  EXPECT_EQ(outcomes.count(), 0u);
}

TEST_F(CancelAuthorizationTest, CancellingWhileTheBrowserOpensDoesNothing) {
  workspace->onOpen = [&](const qvr::URL&) { client->cancelRequestAuthorizationCode(); };
  start();
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_TRUE(client->isRequestingAuthorization());
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(CancelAuthorizationTest, AfterASecondStartOnlyTheLatestAttemptIsCancelled) {
  AuthorizationOutcomes second;
  start();
  const qvr::Text firstState = client->state();
  client->requestAuthorizationCode(second.handler());
  client->cancelRequestAuthorizationCode();
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(second.count(), 1u);
  deliver(microsoftRedirect(firstState));
  EXPECT_EQ(outcomes.code(), "c");
}

TEST_F(CancelAuthorizationTest, TheHandlerRunsOnTheCancellingThread) {
  std::thread::id handlerThread;
  client->requestAuthorizationCode([&](auto, auto) { handlerThread = std::this_thread::get_id(); });
  std::thread thread([&] {
    client->cancelRequestAuthorizationCode();
    EXPECT_EQ(handlerThread, std::this_thread::get_id());
  });
  thread.join();
}

TEST_F(CancelAuthorizationTest, TheHandlerMayStartANewAttemptAtOnce) {
  client->requestAuthorizationCode([&](auto, auto) { start(); });
  client->cancelRequestAuthorizationCode();
  EXPECT_TRUE(client->isRequestingAuthorization());
  EXPECT_EQ(pendingCount(), 1u);
  EXPECT_EQ(outcomes.count(), 0u);
}

TEST_F(CancelAuthorizationTest, TheHandlerMayCancelAgainAtOnce) {
  int calls = 0;
  client->requestAuthorizationCode([&](auto, auto) {
    ++calls;
    client->cancelRequestAuthorizationCode();
  });
  client->cancelRequestAuthorizationCode();
  EXPECT_EQ(calls, 1);
}

TEST_F(CancelAuthorizationTest, TheHandlerMayReleaseTheLastReferenceOfTheHost) {
  const auto destroyed = std::make_shared<bool>(false);
  client->destroyed = destroyed;
  client->requestAuthorizationCode([&](auto, auto) { client = nullptr; });
  MicrosoftClient* const pointer = client.get();
  pointer->cancelRequestAuthorizationCode();
  EXPECT_TRUE(*destroyed);
}

// Runs both at once, as far as two threads can.
void race(const std::function<void()>& one, const std::function<void()>& other) {
  std::barrier together(2);
  const auto run = [&together](const std::function<void()>& function) {
    together.arrive_and_wait();
    function();
  };
  std::thread thread([&] { run(other); });
  run(one);
  thread.join();
}

TEST_F(CancelAuthorizationTest, ARedirectRacingACancellationDeliversOnce) {
  for (int i = 0; i < 200; ++i) {
    std::atomic<int> calls{0};
    client->requestAuthorizationCode([&](auto response, auto error) {
      EXPECT_NE(response == nullptr, error == nullptr);
      ++calls;
    });
    const std::string url = microsoftRedirect(client->state());
    race([&] { deliver(url); }, [&] { client->cancelRequestAuthorizationCode(); });
    ASSERT_EQ(calls, 1);
    ASSERT_EQ(pendingCount(), 0u);
    ASSERT_FALSE(client->isRequestingAuthorization());
  }
}

TEST_F(CancelAuthorizationTest, TwoEqualRedirectsRacingDeliverOnce) {
  for (int i = 0; i < 200; ++i) {
    std::atomic<int> calls{0};
    client->requestAuthorizationCode([&](auto, auto) { ++calls; });
    const std::string url = microsoftRedirect(client->state());
    race([&] { deliver(url); }, [&] { deliver(url); });
    ASSERT_EQ(calls, 1);
  }
}

TEST_F(CancelAuthorizationTest, StartsRacingRedirectsOfOthersLoseNothing) {
  std::atomic<int> calls{0};
  for (int i = 0; i < 200; ++i) {
    const auto other = qvr::makeRef<MicrosoftClient>();
    other->requestAuthorizationCode([&](auto, auto) { ++calls; });
    const std::string url = microsoftRedirect(other->state());
    race([&] { client->requestAuthorizationCode([&](auto, auto) { ++calls; }); },
         [&] { deliver(url); });
    deliver(microsoftRedirect(client->state()));
  }
  EXPECT_EQ(calls, 400);
  EXPECT_EQ(pendingCount(), 0u);
}

}  // namespace
