// The client's data and its class-level hooks.

#include <thread>

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/client/TestClients.h"

namespace {

using support::BareClient;
using support::TestClient;
using testing::MatchesRegex;

class PublicClientTest : public support::LibraryTest {
 protected:
  PublicClientTest() { installHost(); }
  qvr::Ref<TestClient> client = qvr::makeRef<TestClient>();
};

TEST_F(PublicClientTest, InitializerCopiesIdentifierAndSecret) {
  std::string identifier = "identifier", secret = "secret";
  const auto made = qvr::makeRef<TestClient>(identifier, secret);
  identifier.assign("changed");
  secret.assign("changed");
  EXPECT_EQ(made->clientIdentifier(), "identifier");
  EXPECT_EQ(made->clientSecret(), "secret");
}

TEST_F(PublicClientTest, AbsentAndEmptySecretsAreKeptApart) {
  EXPECT_EQ(qvr::makeRef<TestClient>("id", nullptr)->clientSecret(), std::nullopt);
  EXPECT_EQ(qvr::makeRef<TestClient>("id", "")->clientSecret(), "");
}

TEST_F(PublicClientTest, NoArgumentOfTheInitializerIsValidated) {
  EXPECT_EQ(qvr::makeRef<TestClient>("", nullptr)->clientIdentifier(), "");
  EXPECT_EQ(qvr::makeRef<TestClient>(" &=\n", nullptr)->clientIdentifier(), " &=\n");
}

TEST_F(PublicClientTest, ANewClientHasNothingButItsRegistration) {
  EXPECT_EQ(client->scope(), std::nullopt);
  EXPECT_EQ(client->codeVerifier(), std::nullopt);
  EXPECT_EQ(client->codeChallenge(), std::nullopt);
  EXPECT_EQ(client->codeChallengeMethod(), std::nullopt);
  EXPECT_EQ(client->state(), std::nullopt);
  EXPECT_FALSE(client->isRequestingAuthorization());
}

struct Property {
  const char* name;
  void (*set)(TestClient&, qvr::TextView);
  qvr::Text (*get)(const TestClient&);
};

const Property kProperties[] = {
    {"scope", [](TestClient& c, qvr::TextView v) { c.setScope(v); },
     [](const TestClient& c) { return c.scope(); }},
    {"codeVerifier", [](TestClient& c, qvr::TextView v) { c.setCodeVerifier(v); },
     [](const TestClient& c) { return c.codeVerifier(); }},
    {"codeChallenge", [](TestClient& c, qvr::TextView v) { c.setCodeChallenge(v); },
     [](const TestClient& c) { return c.codeChallenge(); }},
    {"codeChallengeMethod", [](TestClient& c, qvr::TextView v) { c.setCodeChallengeMethod(v); },
     [](const TestClient& c) { return c.codeChallengeMethod(); }},
    {"state", [](TestClient& c, qvr::TextView v) { c.setState(v); },
     [](const TestClient& c) { return c.state(); }},
};

TEST_F(PublicClientTest, SettersStoreCopiesAndKeepAbsentAndEmptyApart) {
  for (const Property& property : kProperties) {
    SCOPED_TRACE(property.name);
    std::string value = "value";
    property.set(*client, value);
    value.assign("changed");
    EXPECT_EQ(property.get(*client), "value");
    property.set(*client, "");
    EXPECT_EQ(property.get(*client), "");
    property.set(*client, nullptr);
    EXPECT_EQ(property.get(*client), std::nullopt);
  }
}

TEST_F(PublicClientTest, EachPropertyHasAPlaceOfItsOwn) {
  for (const Property& property : kProperties)
    property.set(*client, property.name);
  for (const Property& property : kProperties)
    EXPECT_EQ(property.get(*client), property.name);
}

// Two long values, so that a torn one would show.
TEST_F(PublicClientTest, PropertiesAreAtomicUnderThreads) {
  const std::string first(200, 'a'), second(300, 'b');
  for (const Property& property : kProperties) {
    property.set(*client, first);
    std::atomic<int> torn{0};
    const auto write = [&](const std::string& value) {
      for (int i = 0; i < 300; ++i)
        property.set(*client, value);
    };
    const auto read = [&] {
      for (int i = 0; i < 300; ++i) {
        const qvr::Text value = property.get(*client);
        if (value != first && value != second) ++torn;
      }
    };
    std::thread threads[] = {std::thread(write, first), std::thread(write, second),
                             std::thread(read), std::thread(read)};
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(torn, 0) << property.name;
  }
}

TEST_F(PublicClientTest, RequestingAuthorizationIsTrueExactlyWhileThereIsAState) {
  client->setState("s");
  EXPECT_TRUE(client->isRequestingAuthorization());
  client->setState("");
  EXPECT_TRUE(client->isRequestingAuthorization()) << "an empty state is a state";
  client->setState(nullptr);
  EXPECT_FALSE(client->isRequestingAuthorization());
}

template <class Call>
std::string raisedReason(Call call) {
  try {
    call();
  } catch (const qvr::InvalidArgumentException& exception) {
    EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
    return exception.reason().value_or("no reason");
  }
  return "nothing raised";
}

TEST_F(PublicClientTest, AbstractHooksOfTheBaseRaise) {
  const auto base = qvr::makeRef<BareClient>("id", nullptr);
  const std::pair<const char*, qvr::Text (QVROAuth2PublicClient::*)() const> hooks[] = {
      {"provider", &QVROAuth2PublicClient::provider},
      {"customURIScheme", &QVROAuth2PublicClient::customURIScheme},
      {"redirectURI", &QVROAuth2PublicClient::redirectURI},
      {"authorizationURI", &QVROAuth2PublicClient::authorizationURI},
      {"tokenURI", &QVROAuth2PublicClient::tokenURI},
      {"revokeURI", &QVROAuth2PublicClient::revokeURI},
  };
  for (const auto& hook : hooks) {
    EXPECT_THAT(raisedReason([&] { ((*base).*hook.second)(); }),
                MatchesRegex("\\+\\[QVROAuth2PublicClient " + std::string(hook.first) +
                             "\\]: unrecognized selector sent to class 0x[0-9a-f]+"));
  }
}

TEST_F(PublicClientTest, WhatIsDerivedFromAbstractHooksRaisesToo) {
  const auto base = qvr::makeRef<BareClient>("id", nullptr);
  EXPECT_THAT(raisedReason([&] { base->redirectURIAuthority(); }),
              MatchesRegex(".*QVROAuth2PublicClient redirectURI\\].*"));
  EXPECT_THAT(raisedReason([&] { base->redirectURIPath(); }),
              MatchesRegex(".*QVROAuth2PublicClient redirectURI\\].*"));
  EXPECT_THAT(raisedReason([&] { base->supportsTokenRevocation(); }),
              MatchesRegex(".*QVROAuth2PublicClient revokeURI\\].*"));
  EXPECT_THAT(raisedReason([&] { base->authorizationURL(); }),
              MatchesRegex(".*QVROAuth2PublicClient authorizationURI\\].*"));
}

TEST_F(PublicClientTest, AuthorityAndPathAreThoseOfTheRedirectURI) {
  struct Case {
    qvr::Text redirect, authority, path;
  };
  const Case cases[] = {
      {"m.x://auth", "auth", ""},
      {"m.x://AUTH/Path", "AUTH", "/Path"},
      {"m.x://auth:8080/", "auth", "/"},
      {"com.example:/oauth2/auth", std::nullopt, "/oauth2/auth"},
      {":/oauth2/auth", std::nullopt, "/oauth2/auth"},
      {"m.x://a%75th/%70", "auth", "/p"},
      {"not a url", std::nullopt, std::nullopt},
      {std::nullopt, std::nullopt, std::nullopt},
  };
  for (const Case& expected : cases) {
    SCOPED_TRACE(expected.redirect.value_or("absent"));
    client->redirect = expected.redirect;
    EXPECT_EQ(client->redirectURIAuthority(), expected.authority);
    EXPECT_EQ(client->redirectURIPath(), expected.path);
  }
}

TEST_F(PublicClientTest, RevocationIsSupportedWhereThereIsARevocationEndpoint) {
  EXPECT_TRUE(client->supportsTokenRevocation());
  client->revoke = "";
  EXPECT_FALSE(client->supportsTokenRevocation());
  client->revoke = std::nullopt;
  EXPECT_FALSE(client->supportsTokenRevocation());
}

TEST_F(PublicClientTest, EveryClassHasTheOneSharedSession) {
  EXPECT_EQ(client->urlSession(), session);
  EXPECT_EQ(QVRGoogleOAuth2PublicClient::init()->urlSession(), session);
  EXPECT_EQ(QVRMicrosoftOAuth2PublicClient::classObject().urlSession(), session);
}

TEST_F(PublicClientTest, AReleasedClientGoesAtOnce) {
  const auto destroyed = std::make_shared<bool>(false);
  client->destroyed = destroyed;
  client->setState("s");
  client = nullptr;
  EXPECT_TRUE(*destroyed);
}

}  // namespace
