// The two built-in providers: registration, hooks and the pairs they add to the query.

#include "tests/client/TestClients.h"

namespace {

using support::GoogleClient;
using support::MicrosoftClient;
using testing::ElementsAre;

class ProviderProfilesTest : public support::LibraryTest {
 protected:
  // The pairs after the base's.
  template <class Client>
  static std::vector<std::string> extraPairs(const Client& client, std::size_t basePairs = 3) {
    std::vector<std::string> pairs = client.authorizationURLQueries();
    EXPECT_GE(pairs.size(), basePairs);
    pairs.erase(pairs.begin(), pairs.begin() + static_cast<std::ptrdiff_t>(basePairs));
    return pairs;
  }
};

class InstalledProfilesTest : public ProviderProfilesTest {
 protected:
  InstalledProfilesTest() { installHost(); }
};

TEST_F(InstalledProfilesTest, ProviderNamesAreTheExportedConstants) {
  EXPECT_EQ(QVROAuth2ProviderGoogle, "Google");
  EXPECT_EQ(QVROAuth2ProviderMicrosoft, "Microsoft");
  EXPECT_EQ(QVRGoogleOAuth2PublicClient::init()->provider(), QVROAuth2ProviderGoogle);
  EXPECT_EQ(QVRMicrosoftOAuth2PublicClient::init()->provider(), QVROAuth2ProviderMicrosoft);
}

TEST_F(InstalledProfilesTest, GoogleHooks) {
  const auto client = QVRGoogleOAuth2PublicClient::init();
  EXPECT_EQ(client->customURIScheme(), "com.example.mail");
  EXPECT_EQ(client->redirectURI(), "com.example.mail:/oauth2/auth");
  EXPECT_EQ(client->authorizationURI(), "https://accounts.google.com/o/oauth2/auth");
  EXPECT_EQ(client->tokenURI(), "https://oauth2.googleapis.com/token");
  EXPECT_EQ(client->revokeURI(), "https://oauth2.googleapis.com/revoke");
  EXPECT_EQ(client->redirectURIAuthority(), std::nullopt);
  EXPECT_EQ(client->redirectURIPath(), "/oauth2/auth");
}

TEST_F(InstalledProfilesTest, MicrosoftHooks) {
  const auto client = QVRMicrosoftOAuth2PublicClient::init();
  EXPECT_EQ(client->customURIScheme(), "msauth.org.example.mail");
  EXPECT_EQ(client->redirectURI(), "msauth.org.example.mail://auth");
  EXPECT_EQ(client->authorizationURI(),
            "https://login.microsoftonline.com/common/oauth2/v2.0/authorize");
  EXPECT_EQ(client->tokenURI(), "https://login.microsoftonline.com/common/oauth2/v2.0/token");
  EXPECT_EQ(client->revokeURI(), std::nullopt);
}

TEST_F(InstalledProfilesTest, MicrosoftRedirectAuthorityIsAuthAndItsPathEmpty) {
  EXPECT_EQ(QVRMicrosoftOAuth2PublicClient::init()->redirectURIAuthority(), "auth");
  EXPECT_EQ(QVRMicrosoftOAuth2PublicClient::init()->redirectURIPath(), "");
}

TEST_F(InstalledProfilesTest, RevocationIsSupportedByGoogleAndNotByMicrosoft) {
  EXPECT_TRUE(QVRGoogleOAuth2PublicClient::init()->supportsTokenRevocation());
  EXPECT_FALSE(QVRMicrosoftOAuth2PublicClient::init()->supportsTokenRevocation());
}

TEST_F(InstalledProfilesTest, HooksAreReachableWithoutAClient) {
  const auto& google = QVRGoogleOAuth2PublicClient::classObject();
  const auto& microsoft = QVRMicrosoftOAuth2PublicClient::classObject();
  EXPECT_EQ(google.redirectURI(), "com.example.mail:/oauth2/auth");
  EXPECT_EQ(microsoft.redirectURI(), "msauth.org.example.mail://auth");
  EXPECT_EQ(&google, &QVRGoogleOAuth2PublicClient::classObject());
  EXPECT_EQ(&microsoft, &QVRMicrosoftOAuth2PublicClient::classObject());
}

TEST_F(InstalledProfilesTest, TheClassesThemselvesAreImmortal) {
  EXPECT_EQ(QVRGoogleOAuth2PublicClient::classObject().retainCount(), SIZE_MAX);
  EXPECT_EQ(QVRMicrosoftOAuth2PublicClient::classObject().retainCount(), SIZE_MAX);
}

TEST_F(InstalledProfilesTest, InitSuppliesTheRegistration) {
  const auto google = QVRGoogleOAuth2PublicClient::init();
  EXPECT_EQ(google->clientIdentifier(), kGoogleIdentifier);
  EXPECT_EQ(google->clientSecret(), "");
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  EXPECT_EQ(microsoft->clientIdentifier(), kMicrosoftIdentifier);
  EXPECT_EQ(microsoft->clientSecret(), std::nullopt);
}

TEST_F(InstalledProfilesTest, InitMakesANewClientOfItsOwn) {
  const auto first = QVRGoogleOAuth2PublicClient::init();
  EXPECT_NE(first, QVRGoogleOAuth2PublicClient::init());
  EXPECT_EQ(first->retainCount(), 1u);
}

TEST_F(InstalledProfilesTest, AddedPropertiesStartAtTheirInitialValues) {
  const auto google = QVRGoogleOAuth2PublicClient::init();
  EXPECT_EQ(google->loginHint(), std::nullopt);
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  EXPECT_EQ(microsoft->responseMode(), "query");
  EXPECT_EQ(microsoft->prompt(), std::nullopt);
  EXPECT_EQ(microsoft->loginHint(), std::nullopt);
  EXPECT_EQ(microsoft->domainHint(), std::nullopt);
}

TEST_F(InstalledProfilesTest, AddedPropertiesStoreCopies) {
  std::string hint = "someone@example.org";
  const auto google = QVRGoogleOAuth2PublicClient::init();
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  google->setLoginHint(hint);
  microsoft->setLoginHint(hint);
  hint.assign("changed");
  EXPECT_EQ(google->loginHint(), "someone@example.org");
  EXPECT_EQ(microsoft->loginHint(), "someone@example.org");
  google->setLoginHint(nullptr);
  EXPECT_EQ(google->loginHint(), std::nullopt);
}

TEST_F(ProviderProfilesTest, WithoutARegistrationGoogleHasEmptyValues) {
  host.setGoogleRegistration("", "", "");
  installHost();
  const auto client = qvr::makeRef<GoogleClient>();
  EXPECT_EQ(client->clientIdentifier(), "");
  EXPECT_EQ(client->clientSecret(), "");
  EXPECT_EQ(client->customURIScheme(), "");
  EXPECT_EQ(client->redirectURI(), ":/oauth2/auth");
  EXPECT_EQ(client->redirectURIAuthority(), std::nullopt);
  EXPECT_EQ(client->redirectURIPath(), "/oauth2/auth");
}

TEST_F(ProviderProfilesTest, GooglesEmptyIdentifierIsSentAsAnEmptyValue) {
  host.setGoogleRegistration("", "", "");
  installHost();
  EXPECT_THAT(qvr::makeRef<GoogleClient>()->authorizationURLQueries(),
              ElementsAre("client_id=", "redirect_uri=%3A%2Foauth2%2Fauth", "response_type=code"));
}

// A host that says nothing at all.
TEST(DefaultProfilesTest, AHostThatSetsNothingGetsTheDefaults) {
  qvr::ScopedWorld world;
  const auto google = QVRGoogleOAuth2PublicClient::init();
  EXPECT_EQ(google->clientIdentifier(), "");
  EXPECT_EQ(google->clientSecret(), "");
  EXPECT_EQ(google->redirectURI(), ":/oauth2/auth");
  EXPECT_EQ(google->authorizationURI(), "https://accounts.google.com/o/oauth2/auth");
  EXPECT_EQ(google->revokeURI(), "https://oauth2.googleapis.com/revoke");
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  EXPECT_EQ(microsoft->clientIdentifier(), "");
  EXPECT_EQ(microsoft->clientSecret(), std::nullopt);
  EXPECT_EQ(microsoft->customURIScheme(), "msauth.");
  EXPECT_EQ(microsoft->redirectURI(), "msauth.://auth");
}

TEST_F(ProviderProfilesTest, EndpointHostsMayBeReplacedAndCarryAPort) {
  host.setGoogleAuthorizationHost("accounts.example:8443");
  host.setGoogleTokenHost("localhost:1234");
  host.setMicrosoftLoginHost("login.example");
  installHost();
  const auto& google = QVRGoogleOAuth2PublicClient::classObject();
  EXPECT_EQ(google.authorizationURI(), "https://accounts.example:8443/o/oauth2/auth");
  EXPECT_EQ(google.tokenURI(), "https://localhost:1234/token");
  EXPECT_EQ(google.revokeURI(), "https://localhost:1234/revoke");
  const auto& microsoft = QVRMicrosoftOAuth2PublicClient::classObject();
  EXPECT_EQ(microsoft.authorizationURI(), "https://login.example/common/oauth2/v2.0/authorize");
  EXPECT_EQ(microsoft.tokenURI(), "https://login.example/common/oauth2/v2.0/token");
}

TEST_F(InstalledProfilesTest, GoogleWithoutALoginHintSendsOnlyTheBasesPairs) {
  const auto client = qvr::makeRef<GoogleClient>();
  EXPECT_THAT(extraPairs(*client), ElementsAre());
  client->setLoginHint("");
  EXPECT_THAT(extraPairs(*client), ElementsAre()) << "empty is as good as absent";
}

TEST_F(InstalledProfilesTest, GoogleSendsItsLoginHintAfterTheStateWithTheAtSignEscaped) {
  const auto client = qvr::makeRef<GoogleClient>();
  client->setLoginHint("someone@example.org");
  client->setScope("mail");
  client->setState("s");
  EXPECT_THAT(client->authorizationURLQueries(),
              ElementsAre("client_id=example-client",
                          "redirect_uri=com.example.mail%3A%2Foauth2%2Fauth", "response_type=code",
                          "scope=mail", "state=s", "login_hint=someone%40example.org"));
}

TEST_F(InstalledProfilesTest, ANewMicrosoftQueryEndsWithTheResponseMode) {
  const auto client = qvr::makeRef<MicrosoftClient>();
  EXPECT_THAT(client->authorizationURLQueries(),
              ElementsAre("client_id=01234567-89ab-cdef-0123-456789abcdef",
                          "redirect_uri=msauth.org.example.mail%3A%2F%2Fauth", "response_type=code",
                          "response_mode=query"));
}

TEST_F(InstalledProfilesTest, AnAbsentOrEmptyResponseModeIsNotSent) {
  const auto client = qvr::makeRef<MicrosoftClient>();
  client->setResponseMode(nullptr);
  EXPECT_THAT(extraPairs(*client), ElementsAre());
  client->setResponseMode("");
  EXPECT_THAT(extraPairs(*client), ElementsAre());
}

TEST_F(InstalledProfilesTest, MicrosoftPairsComeInTheirOrderAfterTheState) {
  const auto client = qvr::makeRef<MicrosoftClient>();
  client->setDomainHint("example.org");
  client->setLoginHint("someone@example.org");
  client->setPrompt("select_account");
  client->setResponseMode("form_post");
  client->setState("s");
  EXPECT_EQ(client->authorizationURLQueries().at(3), "state=s");
  EXPECT_THAT(extraPairs(*client, 4),
              ElementsAre("response_mode=form_post", "prompt=select_account",
                          "login_hint=someone%40example.org", "domain_hint=example.org"));
}

TEST_F(InstalledProfilesTest, EmptyMicrosoftValuesAreNotSent) {
  const auto client = qvr::makeRef<MicrosoftClient>();
  client->setPrompt("");
  client->setLoginHint("");
  client->setDomainHint("");
  EXPECT_THAT(extraPairs(*client), ElementsAre("response_mode=query"));
}

TEST_F(InstalledProfilesTest, ValuesArePassedOnWithoutValidation) {
  const auto client = qvr::makeRef<MicrosoftClient>();
  client->setResponseMode(nullptr);
  client->setPrompt("no such&prompt");
  EXPECT_THAT(extraPairs(*client), ElementsAre("prompt=no%20such%26prompt"));
}

TEST_F(InstalledProfilesTest, TheWholeURLIsSentToTheProvidersEndpoint) {
  EXPECT_EQ(qvr::makeRef<GoogleClient>()->authorizationURL()->absoluteString(),
            "https://accounts.google.com/o/oauth2/auth?client_id=example-client"
            "&redirect_uri=com.example.mail%3A%2Foauth2%2Fauth&response_type=code");
  EXPECT_EQ(qvr::makeRef<MicrosoftClient>()->authorizationURL()->absoluteString(),
            "https://login.microsoftonline.com/common/oauth2/v2.0/authorize"
            "?client_id=01234567-89ab-cdef-0123-456789abcdef"
            "&redirect_uri=msauth.org.example.mail%3A%2F%2Fauth&response_type=code"
            "&response_mode=query");
}

}  // namespace
