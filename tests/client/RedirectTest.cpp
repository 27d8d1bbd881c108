// The redirect: which attempt it reaches, when it is ignored, and what an event without one logs.

#include <thread>

#include "tests/client/TestClients.h"

namespace {

using support::AuthorizationOutcomes;
using support::described;
using support::GoogleClient;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::MicrosoftClient;
using support::TestClient;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kLogStart = "+[QVROAuth2PublicClient handleGetURLEvent:withReplyEvent:]: ";

class RedirectTest : public support::AuthorizationTest {
 protected:
  // A pending attempt.
  void start() { client->requestAuthorizationCode(outcomes.handler()); }

  qvr::Ref<MicrosoftClient> client = qvr::makeRef<MicrosoftClient>();
  AuthorizationOutcomes outcomes;
};

TEST_F(RedirectTest, ReachesTheHandlerOfItsStateWithTheCode) {
  start();
  deliver(microsoftRedirect(client->state(), "code=the%2Bcode"));
  EXPECT_EQ(outcomes.code(), "the+code");
  EXPECT_FALSE(outcomes.only().error);
  EXPECT_EQ(pendingCount(), 0u);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(RedirectTest, DeliveredASecondTimeIsIgnored) {
  start();
  const std::string url = microsoftRedirect(client->state());
  deliver(url);
  deliver(url);
  EXPECT_EQ(outcomes.count(), 1u);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(RedirectTest, TheStateIsClearedBeforeTheHandlerIsCalledAndTheVerifierIsKept) {
  bool wasRequesting = true;
  client->requestAuthorizationCode(
      [&](auto, auto) { wasRequesting = client->isRequestingAuthorization(); });
  const qvr::Text verifier = client->codeVerifier(), challenge = client->codeChallenge();
  deliver(microsoftRedirect(client->state()));
  EXPECT_FALSE(wasRequesting);
  EXPECT_EQ(client->codeVerifier(), verifier);
  EXPECT_EQ(client->codeChallenge(), challenge);
  EXPECT_EQ(client->codeChallengeMethod(), "S256");
}

TEST_F(RedirectTest, AnErrorOfTheProviderReachesTheHandler) {
  start();
  deliver(microsoftRedirect(client->state(), "error=access_denied&error_description=no+way"));
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_FALSE(outcomes.only().response);
  EXPECT_THAT(outcomes.only().error,
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 3, described("no+way")));
  EXPECT_FALSE(client->isRequestingAuthorization());
}

TEST_F(RedirectTest, ARedirectWithoutACodeDeliversAResponseWithoutOne) {
  start();
  deliver(microsoftRedirect(client->state(), "iss=x"));
  ASSERT_EQ(outcomes.count(), 1u);
  ASSERT_TRUE(outcomes.only().response);
  EXPECT_EQ(outcomes.only().response->code(), std::nullopt);
  EXPECT_FALSE(outcomes.only().error);
}

TEST_F(RedirectTest, TwoClientsOfTheSameProviderGetTheirOwn) {
  const auto other = qvr::makeRef<MicrosoftClient>();
  AuthorizationOutcomes otherOutcomes;
  start();
  other->requestAuthorizationCode(otherOutcomes.handler());
  deliver(microsoftRedirect(other->state(), "code=other"));
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_TRUE(client->isRequestingAuthorization());
  deliver(microsoftRedirect(client->state(), "code=one"));
  EXPECT_EQ(outcomes.code(), "one");
  EXPECT_EQ(otherOutcomes.code(), "other");
}

TEST_F(RedirectTest, TwoClientsOfDifferentProvidersGetTheirOwn) {
  const auto google = qvr::makeRef<GoogleClient>();
  AuthorizationOutcomes googleOutcomes;
  start();
  google->requestAuthorizationCode(googleOutcomes.handler());
  deliver(googleRedirect(google->state(), "code=g"));
  deliver(microsoftRedirect(client->state(), "code=m"));
  EXPECT_EQ(googleOutcomes.code(), "g");
  EXPECT_EQ(outcomes.code(), "m");
}

TEST_F(RedirectTest, TheStateAloneLinksARedirectToItsAttempt) {
  start();
  deliver(googleRedirect(client->state(), "code=g"));
  EXPECT_EQ(outcomes.code(), "g") << "a redirect on the other provider's URI counts";
}

TEST_F(RedirectTest, TheClassThatReceivesTheEventDoesNotMatter) {
  start();
  QVRGoogleOAuth2PublicClient::handleGetURLEvent(redirect(microsoftRedirect(client->state())));
  EXPECT_EQ(outcomes.code(), "c");
}

TEST_F(RedirectTest, StatesAreComparedExactly) {
  start();
  std::string state = *client->state();
  state[0] = state[0] == 'a' ? 'A' : 'a';
  deliver(microsoftRedirect(state));
  deliver(microsoftRedirect(*client->state() + "x"));
  deliver(microsoftRedirect(""));
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(RedirectTest, AStateWithRawPlusSlashAndEqualsIsRead) {
  start();
  deliver("msauth.org.example.mail://auth?code=c&state=" + *client->state());
  EXPECT_EQ(outcomes.code(), "c");
}

TEST_F(RedirectTest, RedirectsThatAreNotOursOrCarryNoKnownStateAreIgnoredInSilence) {
  start();
  const std::string state = *TestClient::queryPercentEncoded(client->state());
  const std::string urls[] = {
      "other.app://auth?code=c&state=" + state,
      "https://auth/?code=c&state=" + state,
      ":/oauth2/auth?code=c&state=" + state,
      "msauth.org.example.mail://other?code=c&state=" + state,
      "msauth.org.example.mail://auth/x?code=c&state=" + state,
      "msauth.org.example.mail://auth?code=c",
      "msauth.org.example.mail://auth",
      "msauth.org.example.mail://auth?code=c&state=%FF",
      "msauth.org.example.mail://auth?code=c&state=unknown",
      "msauth.org.example.mail://auth?error=access_denied",
      "msauth.org.example.mail://auth?code=c&state=" + std::string(1 << 20, 'x'),
  };
  for (const std::string& url : urls)
    deliver(url);
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(pendingCount(), 1u);
  EXPECT_TRUE(client->isRequestingAuthorization());
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(RedirectTest, ACodeOfOneMebibyteIsDelivered) {
  start();
  const std::string code(1 << 20, 'x');
  deliver(microsoftRedirect(client->state(), "code=" + code));
  EXPECT_EQ(outcomes.code(), code);
}

TEST_F(RedirectTest, TheRedirectURIOfAProviderOfTheHostsOwnIsNotKnown) {
  const auto own = qvr::makeRef<TestClient>();
  own->requestAuthorizationCode(outcomes.handler());
  deliver("m.x://auth?code=c&state=" + *TestClient::queryPercentEncoded(own->state()));
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(RedirectTest, TheHandlerRunsOnTheDeliveringThreadBeforeTheEventIsDone) {
  std::thread::id handlerThread;
  client->requestAuthorizationCode([&](auto, auto) { handlerThread = std::this_thread::get_id(); });
  const std::string url = microsoftRedirect(client->state());
  std::thread thread([&] {
    deliver(url);
    EXPECT_EQ(handlerThread, std::this_thread::get_id());
  });
  thread.join();
}

TEST_F(RedirectTest, TheHandlerMayStartANewAttemptAtOnce) {
  AuthorizationOutcomes second;
  client->requestAuthorizationCode(
      [&](auto, auto) { client->requestAuthorizationCode(second.handler()); });
  deliver(microsoftRedirect(client->state(), "code=first"));
  EXPECT_TRUE(client->isRequestingAuthorization());
  deliver(microsoftRedirect(client->state(), "code=second"));
  EXPECT_EQ(second.code(), "second");
}

TEST_F(RedirectTest, TheHandlerIsCalledWithNoLockHeldSoOtherThreadsMayGoOn) {
  const auto other = qvr::makeRef<MicrosoftClient>();
  client->requestAuthorizationCode([&](auto, auto) {
    std::thread([&] { other->requestAuthorizationCode(outcomes.handler()); }).join();
  });
  deliver(microsoftRedirect(client->state()));
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(RedirectTest, AClientReleasedByItsCallerStillReceivesTheOutcomeAndGoesAfterwards) {
  const auto destroyed = std::make_shared<bool>(false);
  client->destroyed = destroyed;
  start();
  const std::string url = microsoftRedirect(client->state());
  client = nullptr;
  EXPECT_FALSE(*destroyed) << "the stored handler keeps it alive";
  deliver(url);
  EXPECT_EQ(outcomes.code(), "c");
  EXPECT_TRUE(*destroyed);
}

TEST_F(RedirectTest, TheCallersHandlerIsReleasedAfterItsOneCall) {
  const auto owned = std::make_shared<int>(0);
  client->requestAuthorizationCode([owned](auto, auto) { ++*owned; });
  EXPECT_EQ(owned.use_count(), 2);
  deliver(microsoftRedirect(client->state()));
  EXPECT_EQ(*owned, 1);
  EXPECT_EQ(owned.use_count(), 1);
}

TEST_F(RedirectTest, AnswerInsideOpenURLIsUnknownAndTheAttemptStaysPending) {
  workspace->onOpen = [&](const qvr::URL&) { deliver(microsoftRedirect(client->state())); };
  start();
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_TRUE(client->isRequestingAuthorization());
  deliver(microsoftRedirect(client->state()));
  EXPECT_EQ(outcomes.code(), "c");
}

// How a host receives redirects: they wait in its queue until the start has returned.
TEST_F(RedirectTest, ABrowserThatAnswersBeforeOpenURLReturnsIsServedFromTheHostsQueue) {
  const auto events = qvr::makeRef<support::ManualQueue>("host events");
  workspace->onOpen = [&](const qvr::URL&) {
    std::thread([&] {
      events->async([url = microsoftRedirect(client->state())] { deliver(url); });
    }).join();
  };
  start();
  EXPECT_TRUE(events->runOne());
  EXPECT_EQ(outcomes.code(), "c");
  EXPECT_FALSE(client->isRequestingAuthorization());
}

TEST_F(RedirectTest, AnEventWithoutAnythingIsOneLogLineWithCodeZero) {
  start();
  QVROAuth2PublicClient::handleGetURLEvent({});
  EXPECT_THAT(*log, ElementsAre(std::string(kLogStart) +
                                "Error Domain=NSOSStatusErrorDomain Code=0 \"(null)\""));
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(RedirectTest, AnEventWithANumberAndATextIsLoggedAsTheirError) {
  QVROAuth2PublicClient::handleGetURLEvent({std::nullopt, -128, "User cancelled."});
  EXPECT_THAT(*log, ElementsAre(std::string(kLogStart) +
                                "Error Domain=NSOSStatusErrorDomain Code=-128 \"User cancelled.\" "
                                "UserInfo={NSLocalizedDescription=User cancelled.}"));
}

TEST_F(RedirectTest, AnEventWithANumberAloneHasNoUserInfo) {
  QVROAuth2PublicClient::handleGetURLEvent({std::nullopt, INT32_MIN, std::nullopt});
  EXPECT_THAT(*log, ElementsAre(std::string(kLogStart) +
                                "Error Domain=NSOSStatusErrorDomain Code=-2147483648 \"(null)\""));
}

TEST_F(RedirectTest, AnEventWithATextAloneHasCodeZero) {
  QVROAuth2PublicClient::handleGetURLEvent({std::nullopt, std::nullopt, ""});
  EXPECT_THAT(*log,
              ElementsAre(std::string(kLogStart) + "Error Domain=NSOSStatusErrorDomain Code=0 \"\" "
                                                   "UserInfo={NSLocalizedDescription=}"));
}

TEST_F(RedirectTest, TextThatIsNotAURLIsLoggedWithoutThatText) {
  start();
  const std::string line =
      std::string(kLogStart) + "Error Domain=NSOSStatusErrorDomain Code=0 \"(null)\"";
  for (const char* text : {"", "not a url", "msauth.org.example.mail://auth?code=%zz&state=s",
                           "msauth.org.example.mail://auth?code=c#a#b",
                           "msauth.org.example.mail://auth?code=\xC3\xA9", "1://auth?code=c"}) {
    log->clear();
    deliver(text);
    EXPECT_THAT(*log, ElementsAre(line)) << text;
  }
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(RedirectTest, TheFailurePartsOfAnEventWithAURLAreNotRead) {
  start();
  QVROAuth2PublicClient::handleGetURLEvent({microsoftRedirect(client->state()), -128, "ignored"});
  EXPECT_EQ(outcomes.code(), "c");
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(RedirectTest, TheReplyEventIsNeitherReadNorWritten) {
  start();
  qvr::GetURLEvent reply{"other.app://x", 5, "reply"};
  QVROAuth2PublicClient::handleGetURLEvent(redirect(microsoftRedirect(client->state())), &reply);
  QVROAuth2PublicClient::handleGetURLEvent({}, &reply);
  EXPECT_EQ(outcomes.code(), "c");
  EXPECT_EQ(reply.directObject, "other.app://x");
  EXPECT_EQ(reply.errorNumber, 5);
  EXPECT_EQ(reply.errorString, "reply");
  EXPECT_EQ(log->back(),
            std::string(kLogStart) + "Error Domain=NSOSStatusErrorDomain Code=0 \"(null)\"");
}

TEST_F(RedirectTest, AnUnknownErrorOfTheProviderIsLoggedAndDeliveredAsCodeZero) {
  start();
  deliver(microsoftRedirect(client->state(), "error=novel"));
  EXPECT_THAT(outcomes.calls->at(0).error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, ElementsAre("error: \"novel\""));
}

}  // namespace
