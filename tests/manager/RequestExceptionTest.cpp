// Programming errors that show up when a refresh is due: they raise on the delegate queue.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/manager/ManagerTest.h"
#include "tests/support/Countdown.h"

namespace {

using support::IsAnswered;
using support::kUser;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kElsewhereService = "org.example.mail.Elsewhere.OAuth2Token";

class RequestExceptionTest : public support::ManagerTest {
 protected:
  // Runs the keychain read of a request, and the step after it, which raises.
  template <class Expected>
  void expectRaised(const qvr::Text& reason) {
    EXPECT_TRUE(queues.named(support::kWorkQueue)->runOne());
    try {
      queues.named(support::kDelegateQueue)->runOne();
      FAIL() << "nothing was raised";
    } catch (const Expected& exception) {
      if (reason) {
        EXPECT_EQ(exception.reason(), reason);
      }
    }
    EXPECT_THAT(answers, IsEmpty());
  }

  // The lock that was held is free again, and the handler still waits: the next request for the
  // user name answers both.
  void expectNextRequestAnswersBoth() {
    put(freshToken());
    request("next");
    runAll();
    EXPECT_THAT(answers, ElementsAre(IsAnswered("raised"), IsAnswered("next")));
  }
};

TEST_F(RequestExceptionTest, AnUnknownProviderRaisesWhenARefreshIsDue) {
  put(dueToken(), kElsewhereService);
  request("raised", "Elsewhere");
  expectRaised<qvr::InternalInconsistencyException>(
      "*** -[QVROAuth2TokenManager "
      "taskForRefreshingAccessToken:withProvider:username:completionHandler:]: invalid provider "
      "name \"Elsewhere\"");
  EXPECT_THAT(session->tasks(), IsEmpty());
  expectNextRequestAnswersBoth();
}

TEST_F(RequestExceptionTest, NoTaskIsLeftBehind) {
  put(dueToken(), kElsewhereService);
  request("raised", "Elsewhere");
  expectRaised<qvr::InternalInconsistencyException>(std::nullopt);
  manager->cancelRequestForProvider("Elsewhere", kUser);
  put(dueToken());
  startRefresh("next");
  EXPECT_EQ(session->tasks().size(), 1);
}

TEST_F(RequestExceptionTest, ARefreshTokenThatCannotBeSentRaises) {
  put(support::makeToken("at", 0, "two words", 0));
  request("raised");
  expectRaised<qvr::RangeException>(std::nullopt);
  EXPECT_THAT(session->tasks(), IsEmpty());
  expectNextRequestAnswersBoth();
}

class RequestEndpointExceptionTest : public support::UnstartedManagerTest {};

TEST_F(RequestEndpointExceptionTest, AnEndpointThatIsNoURLRaises) {
  host.setGoogleTokenHost("not a host");
  start();
  put(dueToken());
  request("raised");
  EXPECT_TRUE(queues.named(support::kWorkQueue)->runOne());
  EXPECT_THROW(queues.named(support::kDelegateQueue)->runOne(),
               qvr::InternalInconsistencyException);
  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(RequestExceptionTest, AnAbsentProviderRaisesAtOnce) {
  EXPECT_THROW(request("r", nullptr), qvr::InvalidArgumentException);
  EXPECT_THROW(manager->hasAccessTokenForProvider(nullptr, kUser, [](bool) {}),
               qvr::InvalidArgumentException);
  runAll();
  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(RequestExceptionTest, AnAbsentUserNameRaisesOnTheWorkQueue) {
  request("r", QVROAuth2ProviderGoogle, nullptr);
  EXPECT_THROW(queues.named(support::kWorkQueue)->runOne(), qvr::InvalidArgumentException);
  runAll();
  EXPECT_THAT(answers, IsEmpty());
}

// Runs in a process of its own, which the exception ends.
void refreshForAnUnknownProvider() {
  const qvr::ScopedWorld world;
  const auto keychain = qvr::makeRef<support::FakeKeychain>();
  keychain->put("Elsewhere.OAuth2Token", kUser,
                support::archiveOf(support::makeToken("due", 0, "rt", 0)));
  QVROAuth2Host host;
  host.setKeychainItems(keychain);
  host.install();
  support::Countdown answered;
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->requestAccessTokenForProvider(
      "Elsewhere", kUser,
      [&](const qvr::Ref<QVROAuth2Token>&, const qvr::ErrorPtr&) { answered.arrive(); });
  (void)answered.wait();
}

TEST(RequestDeathTest, AnUnknownProviderEndsTheProcessAndIsNamedOnStandardError) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(refreshForAnUnknownProvider(),
               "NSInternalInconsistencyException: \\*\\*\\* .*invalid provider name .Elsewhere.");
}

}  // namespace
