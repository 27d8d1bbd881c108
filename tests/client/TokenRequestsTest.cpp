// The form parameters and requests of the three exchanges, byte by byte.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/client/TestClients.h"

namespace {

using support::GoogleClient;
using support::MicrosoftClient;
using support::TestClient;
using testing::ElementsAre;
using testing::Pair;

class TokenRequestsTest : public support::LibraryTest {
 protected:
  TokenRequestsTest() { installHost(); }

  static std::string bodyOf(const std::optional<qvr::URLRequest>& request) {
    return request ? std::string(request->HTTPBody.begin(), request->HTTPBody.end()) : "no request";
  }

  qvr::Ref<TestClient> client = qvr::makeRef<TestClient>();
};

TEST_F(TokenRequestsTest, ACodeExchangeWithoutASecretSendsFiveParametersInOrder) {
  client->setCodeVerifier("ver");
  EXPECT_THAT(client->formParametersForRequestingAccessTokenWithAuthorizationCode("the/code"),
              ElementsAre("client_id=id", "code=the%2Fcode", "code_verifier=ver",
                          "grant_type=authorization_code", "redirect_uri=m.x%3A%2F%2Fauth"));
  EXPECT_EQ(bodyOf(client->accessTokenRequestWithAuthorizationCode("the/code")),
            "client_id=id&code=the%2Fcode&code_verifier=ver&grant_type=authorization_code"
            "&redirect_uri=m.x%3A%2F%2Fauth");
}

TEST_F(TokenRequestsTest, ASecretComesSecond) {
  client = qvr::makeRef<TestClient>("id", "s=1");
  client->setCodeVerifier("ver");
  EXPECT_THAT(client->formParametersForRequestingAccessTokenWithAuthorizationCode("c"),
              ElementsAre("client_id=id", "client_secret=s%3D1", "code=c", "code_verifier=ver",
                          "grant_type=authorization_code", "redirect_uri=m.x%3A%2F%2Fauth"));
}

TEST_F(TokenRequestsTest, AnEmptySecretIsSentAsAnEmptyValueInSecondPlace) {
  client = qvr::makeRef<TestClient>("id", "");
  EXPECT_EQ(client->formParametersForRequestingAccessTokenWithAuthorizationCode("c").at(1),
            "client_secret=");
  EXPECT_EQ(client->formParametersForRefreshingAccessTokenWithRefreshToken("r").at(1),
            "client_secret=");
}

TEST_F(TokenRequestsTest, ACodeExchangeWithoutAVerifierLeavesItOut) {
  EXPECT_THAT(client->formParametersForRequestingAccessTokenWithAuthorizationCode("c"),
              ElementsAre("client_id=id", "code=c", "grant_type=authorization_code",
                          "redirect_uri=m.x%3A%2F%2Fauth"));
}

TEST_F(TokenRequestsTest, AnEmptyVerifierAndCodeArePresent) {
  client->setCodeVerifier("");
  EXPECT_THAT(client->formParametersForRequestingAccessTokenWithAuthorizationCode(""),
              ElementsAre("client_id=id", "code=", "code_verifier=",
                          "grant_type=authorization_code", "redirect_uri=m.x%3A%2F%2Fauth"));
}

TEST_F(TokenRequestsTest, TheRedirectURIsColonAndSlashesAreEscaped) {
  EXPECT_EQ(client->formParametersForRequestingAccessTokenWithAuthorizationCode("c").back(),
            "redirect_uri=m.x%3A%2F%2Fauth");
}

TEST_F(TokenRequestsTest, ATildeIsEscapedAndTheFourOtherMarksAreNot) {
  client->setCodeVerifier("a~b*c-d.e_f");
  EXPECT_EQ(client->formParametersForRequestingAccessTokenWithAuthorizationCode("c").at(2),
            "code_verifier=a%7Eb*c-d.e_f");
}

TEST_F(TokenRequestsTest, ARefreshHasItsThreeParametersInOrderAndNoOther) {
  client->setScope("mail");
  client->setCodeVerifier("ver");
  EXPECT_THAT(client->formParametersForRefreshingAccessTokenWithRefreshToken("r+t"),
              ElementsAre("client_id=id", "refresh_token=r%2Bt", "grant_type=refresh_token"));
  EXPECT_EQ(bodyOf(client->refreshAccessTokenRequestWithRefreshToken("r+t")),
            "client_id=id&refresh_token=r%2Bt&grant_type=refresh_token");
}

TEST_F(TokenRequestsTest, ARefreshWithASecretSendsItSecond) {
  client = qvr::makeRef<TestClient>("id", "sec");
  EXPECT_THAT(client->formParametersForRefreshingAccessTokenWithRefreshToken("rt"),
              ElementsAre("client_id=id", "client_secret=sec", "refresh_token=rt",
                          "grant_type=refresh_token"));
}

TEST_F(TokenRequestsTest, ARevocationWithoutAHintHasTheTokenAlone) {
  EXPECT_THAT(client->formParametersForRevokingToken("t", nullptr), ElementsAre("token=t"));
  EXPECT_EQ(bodyOf(client->tokenRevocationRequestWithToken("t", nullptr)), "token=t");
}

TEST_F(TokenRequestsTest, ARevocationSendsItsHintAndNoCredentials) {
  client = qvr::makeRef<TestClient>("id", "sec");
  EXPECT_EQ(bodyOf(client->tokenRevocationRequestWithToken("t", "refresh_token")),
            "token=t&token_type_hint=refresh_token");
  EXPECT_THAT(client->formParametersForRevokingToken("t", ""),
              ElementsAre("token=t", "token_type_hint="))
      << "an empty hint is present";
}

TEST_F(TokenRequestsTest, BuildersAnswerAFreshListEachTime) {
  client->formParametersForRevokingToken("t", nullptr).clear();
  EXPECT_EQ(client->formParametersForRevokingToken("t", nullptr).size(), 1u);
}

TEST_F(TokenRequestsTest, RequestsArePOSTsWithTwoHeadersInOrder) {
  const std::optional<qvr::URLRequest> requests[] = {
      client->accessTokenRequestWithAuthorizationCode("c"),
      client->refreshAccessTokenRequestWithRefreshToken("r"),
      client->tokenRevocationRequestWithToken("t", nullptr),
  };
  for (const auto& request : requests) {
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->HTTPMethod, "POST");
    EXPECT_THAT(
        request->headers,
        ElementsAre(Pair("Accept", "application/json"),
                    Pair("Content-Type", "application/x-www-form-urlencoded; charset=utf-8")));
  }
}

TEST_F(TokenRequestsTest, RequestsGoToTheirEndpoints) {
  EXPECT_EQ(client->accessTokenRequestWithAuthorizationCode("c")->url.absoluteString(),
            "https://login.example/token");
  EXPECT_EQ(client->refreshAccessTokenRequestWithRefreshToken("r")->url.absoluteString(),
            "https://login.example/token");
  EXPECT_EQ(client->tokenRevocationRequestWithToken("t", nullptr)->url.absoluteString(),
            "https://login.example/revoke");
}

TEST_F(TokenRequestsTest, AnEndpointThatYieldsNoURLGivesNoRequest) {
  for (const qvr::Text& endpoint :
       {qvr::Text(), qvr::Text(""), qvr::Text("https://login.example/a b")}) {
    client->token = endpoint;
    client->revoke = endpoint;
    EXPECT_EQ(bodyOf(client->accessTokenRequestWithAuthorizationCode("c")), "no request");
    EXPECT_EQ(bodyOf(client->refreshAccessTokenRequestWithRefreshToken("r")), "no request");
    EXPECT_EQ(bodyOf(client->tokenRevocationRequestWithToken("t", nullptr)), "no request");
  }
}

// Building the parameters of "a b" would raise.
TEST_F(TokenRequestsTest, WithoutAnEndpointTheParametersAreNotBuilt) {
  client->token = std::nullopt;
  client->revoke = std::nullopt;
  EXPECT_EQ(bodyOf(client->accessTokenRequestWithAuthorizationCode("a b")), "no request");
  EXPECT_EQ(bodyOf(client->refreshAccessTokenRequestWithRefreshToken("a b")), "no request");
  EXPECT_EQ(bodyOf(client->tokenRevocationRequestWithToken("a b", nullptr)), "no request");
}

TEST_F(TokenRequestsTest, AValueWithASpaceAndMoreTextRaisesFromEveryBuilder) {
  const auto& c = *client;
  EXPECT_THROW(c.formParametersForRequestingAccessTokenWithAuthorizationCode("a b"),
               qvr::RangeException);
  EXPECT_THROW(c.accessTokenRequestWithAuthorizationCode("a b"), qvr::RangeException);
  EXPECT_THROW(c.formParametersForRefreshingAccessTokenWithRefreshToken("a b"),
               qvr::RangeException);
  EXPECT_THROW(c.refreshAccessTokenRequestWithRefreshToken("a b"), qvr::RangeException);
  EXPECT_THROW(c.formParametersForRevokingToken("a b", nullptr), qvr::RangeException);
  EXPECT_THROW(c.formParametersForRevokingToken("t", "a b"), qvr::RangeException);
  EXPECT_THROW(c.tokenRevocationRequestWithToken("a b", nullptr), qvr::RangeException);
}

TEST_F(TokenRequestsTest, AValueWithATrailingSpaceIsSentItsOwnWay) {
  EXPECT_THAT(client->formParametersForRevokingToken("t ", nullptr), ElementsAre("token=t t+"));
}

TEST_F(TokenRequestsTest, TheGoogleProfileSendsItsEmptySecret) {
  EXPECT_EQ(bodyOf(qvr::makeRef<GoogleClient>()->refreshAccessTokenRequestWithRefreshToken("rt")),
            "client_id=example-client&client_secret=&refresh_token=rt&grant_type=refresh_token");
}

TEST_F(TokenRequestsTest, TheMicrosoftProfileSendsNoSecret) {
  EXPECT_EQ(bodyOf(qvr::makeRef<MicrosoftClient>()->accessTokenRequestWithAuthorizationCode("c")),
            "client_id=01234567-89ab-cdef-0123-456789abcdef&code=c&grant_type=authorization_code"
            "&redirect_uri=msauth.org.example.mail%3A%2F%2Fauth");
}

}  // namespace
