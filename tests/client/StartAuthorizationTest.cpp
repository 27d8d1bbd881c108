// The start of an authorization: what is stored when, what the browser gets, and how it fails.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/client/TestClients.h"

namespace {

using support::AuthorizationOutcomes;
using support::BareClient;
using support::IsErrorWithoutUserInfo;
using support::MicrosoftClient;
using support::pairsOf;
using support::TestClient;
using testing::ElementsAre;
using testing::IsEmpty;

class StartAuthorizationTest : public support::AuthorizationTest {
 protected:
  qvr::Ref<TestClient> client = qvr::makeRef<TestClient>();
  AuthorizationOutcomes outcomes;
};

TEST_F(StartAuthorizationTest, OpensTheAuthorizationURLOnceAndWaits) {
  client->requestAuthorizationCode(outcomes.handler());
  ASSERT_EQ(workspace->opened.size(), 1u);
  EXPECT_EQ(workspace->opened[0], client->authorizationURL());
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(pendingCount(), 1u);
  EXPECT_TRUE(client->isRequestingAuthorization());
}

TEST_F(StartAuthorizationTest, TheURLCarriesTheFreshStateAndChallenge) {
  client->setScope("mail");
  client->requestAuthorizationCode(outcomes.handler());
  EXPECT_THAT(pairsOf(workspace->opened.at(0)),
              ElementsAre("client_id=id", "redirect_uri=m.x%3A%2F%2Fauth", "response_type=code",
                          "scope=mail", "code_challenge=" + *client->codeChallenge(),
                          "code_challenge_method=S256",
                          "state=" + *TestClient::queryPercentEncoded(client->state())));
  EXPECT_EQ(client->state()->size(), 44u);
}

TEST_F(StartAuthorizationTest, TheStatesPlusSlashAndEqualsReachTheBrowserEscaped) {
  for (int i = 0; i < 20; ++i) {
    client->requestAuthorizationCode(outcomes.handler());
    const std::string pair = pairsOf(workspace->opened.back()).back();
    EXPECT_EQ(pair.find_first_of("+/=", sizeof "state=" - 1), std::string::npos);
    EXPECT_EQ(pair.substr(pair.size() - 3), "%3D");
    EXPECT_EQ(qvr::percentDecoded(pair), "state=" + *client->state());
  }
}

TEST_F(StartAuthorizationTest, TheChallengeIsThatOfTheStoredVerifier) {
  client->requestAuthorizationCode(outcomes.handler());
  ASSERT_TRUE(client->codeVerifier().has_value());
  EXPECT_EQ(client->codeVerifier()->size(), 128u);
  EXPECT_EQ(client->codeChallenge(),
            TestClient::S256CodeChallengeWithCodeVerifier(client->codeVerifier()));
  EXPECT_EQ(client->codeChallengeMethod(), "S256");
}

TEST_F(StartAuthorizationTest, EachStartMakesNewValues) {
  client->requestAuthorizationCode(outcomes.handler());
  const qvr::Text state = client->state(), verifier = client->codeVerifier();
  client->requestAuthorizationCode(outcomes.handler());
  EXPECT_NE(client->state(), state);
  EXPECT_NE(client->codeVerifier(), verifier);
}

// Looks at the client whenever it is asked for a number.
class WatchingRandomSource final : public qvr::RandomSource {
 public:
  std::int32_t copyBytes(std::span<std::uint8_t>) override {
    steps.push_back(client->isRequestingAuthorization() ? "state again" : "state");
    return 0;
  }
  std::uint32_t uniform(std::uint32_t) override {
    const bool ordered = client->isRequestingAuthorization() && !client->codeVerifier();
    if (steps.size() == 1) steps.push_back(ordered ? "verifier, after the state" : "wrong order");
    return 0;
  }
  TestClient* client = nullptr;
  std::vector<std::string> steps;
};

class StartOrderTest : public support::LibraryTest {};

TEST_F(StartOrderTest, TheStateIsStoredBeforeTheVerifierIsDrawn) {
  const auto watching = qvr::makeRef<WatchingRandomSource>();
  host.setRandomSource(watching);
  installHost();
  const auto client = qvr::makeRef<TestClient>();
  watching->client = client.get();
  client->requestAuthorizationCode([](auto, auto) {});
  EXPECT_THAT(watching->steps, ElementsAre("state", "verifier, after the state"));
}

TEST_F(StartAuthorizationTest, AllFourValuesAreStoredBeforeTheURLIsOpenedAndTheHandlerAfterwards) {
  bool wasComplete = false;
  std::size_t pendingInBrowser = 1;
  workspace->onOpen = [&](const qvr::URL&) {
    wasComplete = client->state() && client->codeVerifier() && client->codeChallenge() &&
                  client->codeChallengeMethod();
    pendingInBrowser = pendingCount();
  };
  client->requestAuthorizationCode(outcomes.handler());
  EXPECT_TRUE(wasComplete);
  EXPECT_EQ(pendingInBrowser, 0u);
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(StartAuthorizationTest, AFailedRandomSourceCallsTheHandlerAtOnceAndChangesNothing) {
  random->status = -25291;
  client->setCodeVerifier("kept");
  client->requestAuthorizationCode(outcomes.handler());
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_FALSE(outcomes.only().response);
  EXPECT_THAT(outcomes.only().error, IsErrorWithoutUserInfo("NSOSStatusErrorDomain", -25291));
  EXPECT_FALSE(client->isRequestingAuthorization());
  EXPECT_EQ(client->codeVerifier(), "kept");
  EXPECT_EQ(client->codeChallenge(), std::nullopt);
  EXPECT_EQ(client->codeChallengeMethod(), std::nullopt);
  EXPECT_THAT(workspace->opened, IsEmpty());
  EXPECT_EQ(pendingCount(), 0u);
}

TEST_F(StartAuthorizationTest, AFailedRandomSourceLeavesAPendingAttemptAsItIs) {
  client->requestAuthorizationCode(outcomes.handler());
  const qvr::Text state = client->state();
  random->status = -1;
  AuthorizationOutcomes second;
  client->requestAuthorizationCode(second.handler());
  EXPECT_EQ(second.count(), 1u);
  EXPECT_EQ(client->state(), state);
  EXPECT_EQ(pendingCount(), 1u);
}

std::string raisedByStart(TestClient& client, const AuthorizationOutcomes& outcomes) {
  auto copy = outcomes;
  try {
    client.requestAuthorizationCode(copy.handler());
  } catch (const qvr::InternalInconsistencyException& exception) {
    EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
    return exception.reason().value_or("no reason");
  }
  return "nothing raised";
}

TEST_F(StartAuthorizationTest, WithoutAnAuthorizationURLItRaisesAndNeverCallsTheHandler) {
  for (const qvr::Text& endpoint :
       {qvr::Text(), qvr::Text(""), qvr::Text("https://login.example/a b")}) {
    client = qvr::makeRef<TestClient>();
    client->authorization = endpoint;
    EXPECT_EQ(raisedByStart(*client, outcomes), "*** nil authorizationURL");
    EXPECT_EQ(outcomes.count(), 0u);
    EXPECT_THAT(workspace->opened, IsEmpty());
    EXPECT_EQ(pendingCount(), 0u);
  }
}

TEST_F(StartAuthorizationTest, WithoutAnAuthorizationURLTheStateStaysSetAndTheNextStartReplacesIt) {
  client->authorization = std::nullopt;
  EXPECT_EQ(raisedByStart(*client, outcomes), "*** nil authorizationURL");
  const qvr::Text stuck = client->state();
  EXPECT_TRUE(client->isRequestingAuthorization());
  EXPECT_TRUE(client->codeVerifier().has_value());

  client->authorization = "https://login.example/authorize";
  client->requestAuthorizationCode(outcomes.handler());
  EXPECT_NE(client->state(), stuck);
  EXPECT_EQ(pendingCount(), 1u);
}

TEST_F(StartAuthorizationTest, WhenNoBrowserOpensTheHandlerHasBeenCalledAndTheStateIsClear) {
  workspace->opens = false;
  bool wasRequesting = true;
  client->requestAuthorizationCode([&, record = outcomes.handler()](auto response, auto error) {
    wasRequesting = client->isRequestingAuthorization();
    record(response, error);
  });
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_FALSE(wasRequesting) << "the state is cleared before the handler is called";
  EXPECT_FALSE(outcomes.only().response);
  EXPECT_THAT(outcomes.only().error, IsErrorWithoutUserInfo("NSURLErrorDomain", -1));
  EXPECT_FALSE(client->isRequestingAuthorization());
  EXPECT_EQ(pendingCount(), 0u);
}

TEST_F(StartAuthorizationTest, WhenNoBrowserOpensTheHandlerMayStartAgainAtOnce) {
  workspace->opens = false;
  client->requestAuthorizationCode([&](auto, auto) {
    workspace->opens = true;
    client->requestAuthorizationCode(outcomes.handler());
  });
  EXPECT_TRUE(client->isRequestingAuthorization());
  EXPECT_EQ(pendingCount(), 1u);
}

// Knows no provider but itself.
class HooklessClient final : public BareClient {
 public:
  HooklessClient() : BareClient("id", nullptr) {}
};

TEST_F(StartAuthorizationTest, AClientWithoutHooksRaisesTheirException) {
  const auto hookless = qvr::makeRef<HooklessClient>();
  EXPECT_THROW(hookless->requestAuthorizationCode(outcomes.handler()),
               qvr::InvalidArgumentException);
  EXPECT_EQ(outcomes.count(), 0u);
}

TEST_F(StartAuthorizationTest, AnEqualStateReplacesTheStoredHandler) {
  random->next = 0;
  client->requestAuthorizationCode(outcomes.handler());
  const auto second = qvr::makeRef<MicrosoftClient>();
  AuthorizationOutcomes secondOutcomes;
  random->next = 0;
  second->requestAuthorizationCode(secondOutcomes.handler());
  ASSERT_EQ(second->state(), client->state());
  EXPECT_EQ(pendingCount(), 1u);

  deliver(microsoftRedirect(second->state()));
  EXPECT_EQ(outcomes.count(), 0u);
  EXPECT_EQ(secondOutcomes.code(), "c");
}

TEST_F(StartAuthorizationTest, AReplacedHandlerLetsItsClientGo) {
  const auto destroyed = std::make_shared<bool>(false);
  client->destroyed = destroyed;
  random->next = 0;
  client->requestAuthorizationCode(outcomes.handler());
  client = nullptr;
  random->next = 0;
  EXPECT_FALSE(*destroyed);
  const auto second = qvr::makeRef<TestClient>();
  second->requestAuthorizationCode(outcomes.handler());
  EXPECT_TRUE(*destroyed);
}

TEST_F(StartAuthorizationTest, ASecondStartDoesNotCancelTheFirst) {
  const auto both = qvr::makeRef<MicrosoftClient>();
  AuthorizationOutcomes second;
  both->requestAuthorizationCode(outcomes.handler());
  const qvr::Text firstState = both->state(), firstVerifier = both->codeVerifier();
  both->requestAuthorizationCode(second.handler());
  const qvr::Text secondState = both->state(), secondVerifier = both->codeVerifier();
  EXPECT_EQ(pendingCount(), 2u);
  EXPECT_NE(secondVerifier, firstVerifier);

  deliver(microsoftRedirect(firstState, "code=first"));
  EXPECT_EQ(outcomes.code(), "first");
  EXPECT_FALSE(both->isRequestingAuthorization()) << "whichever comes first clears the state";
  EXPECT_EQ(both->codeVerifier(), secondVerifier);

  both->cancelRequestAuthorizationCode();
  EXPECT_EQ(second.count(), 0u) << "without a state there is nothing to cancel";
  deliver(microsoftRedirect(secondState, "code=second"));
  EXPECT_EQ(second.code(), "second");
  EXPECT_EQ(pendingCount(), 0u);
}

TEST_F(StartAuthorizationTest, TheRegistryIsTheSameWhoeverAsks) {
  const auto google = QVRGoogleOAuth2PublicClient::init();
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  PendingAuthorizations* const registry = &PendingAuthorizations::shared();
  google->requestAuthorizationCode(outcomes.handler());
  microsoft->requestAuthorizationCode(outcomes.handler());
  client->requestAuthorizationCode(outcomes.handler());
  EXPECT_EQ(pendingCount(), 3u);
  EXPECT_EQ(&PendingAuthorizations::shared(), registry);
}

}  // namespace
