// The authorization URL and its query.

#include "tests/client/TestClients.h"

namespace {

using support::pairsOf;
using support::TestClient;
using testing::ElementsAre;
using testing::Not;

class AuthorizationURLTest : public support::LibraryTest {
 protected:
  AuthorizationURLTest() { installHost(); }

  std::string url() const {
    const auto made = client->authorizationURL();
    return made ? made->absoluteString() : "no URL";
  }

  qvr::Ref<TestClient> client = qvr::makeRef<TestClient>();
};

TEST_F(AuthorizationURLTest, WithoutOptionalValuesTheQueryHasExactlyThreePairs) {
  EXPECT_THAT(client->authorizationURLQueries(),
              ElementsAre("client_id=id", "redirect_uri=m.x%3A%2F%2Fauth", "response_type=code"));
}

TEST_F(AuthorizationURLTest, AllPairsComeInTheirOrder) {
  client->setState("st");
  client->setCodeChallengeMethod("S256");
  client->setCodeChallenge("cc");
  client->setCodeVerifier("never sent");
  client->setScope("mail");
  EXPECT_EQ(url(),
            "https://login.example/authorize?client_id=id&redirect_uri=m.x%3A%2F%2Fauth"
            "&response_type=code&scope=mail&code_challenge=cc&code_challenge_method=S256&state=st");
}

TEST_F(AuthorizationURLTest, EachOptionalPairIsThereExactlyWhenItsValueIs) {
  client->setCodeChallengeMethod("plain");
  EXPECT_THAT(client->authorizationURLQueries(),
              ElementsAre("client_id=id", "redirect_uri=m.x%3A%2F%2Fauth", "response_type=code",
                          "code_challenge_method=plain"));
  client->setCodeChallengeMethod(nullptr);
  client->setState("s");
  EXPECT_THAT(client->authorizationURLQueries(),
              ElementsAre("client_id=id", "redirect_uri=m.x%3A%2F%2Fauth", "response_type=code",
                          "state=s"));
}

TEST_F(AuthorizationURLTest, TheStatesPlusSlashAndEqualsAreEscaped) {
  client->setState("a+b/c=");
  EXPECT_EQ(client->authorizationURLQueries().back(), "state=a%2Bb%2Fc%3D");
}

TEST_F(AuthorizationURLTest, ASpaceInTheScopeIsEscaped) {
  client->setScope("a b");
  EXPECT_EQ(client->authorizationURLQueries().back(), "scope=a%20b");
}

TEST_F(AuthorizationURLTest, EmptyScopeIsSentAsAnEmptyValue) {
  client->setScope("");
  EXPECT_EQ(client->authorizationURLQueries().back(), "scope=");
}

TEST_F(AuthorizationURLTest, EmptyOptionalValuesAreSentAsEmptyValues) {
  client->setCodeChallenge("");
  client->setCodeChallengeMethod("");
  client->setState("");
  EXPECT_THAT(client->authorizationURLQueries(),
              ElementsAre("client_id=id", "redirect_uri=m.x%3A%2F%2Fauth", "response_type=code",
                          "code_challenge=", "code_challenge_method=", "state="));
}

TEST_F(AuthorizationURLTest, EmptyClientIdentifierIsSentAsAnEmptyValue) {
  client = qvr::makeRef<TestClient>("");
  EXPECT_EQ(client->authorizationURLQueries().front(), "client_id=");
}

TEST_F(AuthorizationURLTest, EmptyRedirectURIIsSentAsAnEmptyValue) {
  client->redirect = "";
  EXPECT_EQ(client->authorizationURLQueries().at(1), "redirect_uri=");
}

TEST_F(AuthorizationURLTest, TheRedirectURIsColonAndSlashesAreEscaped) {
  EXPECT_EQ(client->authorizationURLQueries().at(1), "redirect_uri=m.x%3A%2F%2Fauth");
}

TEST_F(AuthorizationURLTest, AScopeMayHoldAnyCharacters) {
  client->setScope("&=?#%\n\xC3\xA9");
  EXPECT_EQ(client->authorizationURLQueries().back(), "scope=%26%3D%3F%23%25%0A%C3%A9");
  EXPECT_NE(url(), "no URL");
}

TEST_F(AuthorizationURLTest, TheSecretIsNeverPartOfTheURL) {
  client = qvr::makeRef<TestClient>("id", "hush");
  client->setScope("mail");
  EXPECT_THAT(url(), Not(testing::HasSubstr("hush")));
  EXPECT_THAT(url(), Not(testing::HasSubstr("client_secret")));
}

TEST_F(AuthorizationURLTest, AnEndpointWithAQueryGetsASecondQuestionMark) {
  client->authorization = "https://login.example/authorize?tenant=1";
  EXPECT_EQ(url(),
            "https://login.example/authorize?tenant=1?client_id=id&redirect_uri=m.x%3A%2F%2Fauth"
            "&response_type=code");
}

TEST_F(AuthorizationURLTest, AnAbsentEndpointYieldsNoURL) {
  client->authorization = std::nullopt;
  EXPECT_EQ(client->authorizationURL(), std::nullopt);
}

TEST_F(AuthorizationURLTest, AnEmptyEndpointYieldsNoURL) {
  client->authorization = "";
  EXPECT_EQ(client->authorizationURL(), std::nullopt);
}

TEST_F(AuthorizationURLTest, AnEndpointThatDoesNotParseYieldsNoURL) {
  for (const char* endpoint : {"https://login.example/a b", "https://login.example/%zz",
                               "https://login.example/\xC3\xA9", "https://[login/"}) {
    client->authorization = endpoint;
    EXPECT_EQ(client->authorizationURL(), std::nullopt) << endpoint;
  }
}

// Answers a list of its own in place of the base's.
class ListingClient final : public support::BareClient {
 public:
  ListingClient() : support::BareClient("id", nullptr) {}
  qvr::Text authorizationURI() const override { return "https://login.example/authorize"; }
  std::vector<std::string> authorizationURLQueries() const override { return list; }
  std::vector<std::string> list;
};

TEST_F(AuthorizationURLTest, WithoutAnyPairTheEndpointStaysAsItIs) {
  EXPECT_EQ(qvr::makeRef<ListingClient>()->authorizationURL()->absoluteString(),
            "https://login.example/authorize");
}

TEST_F(AuthorizationURLTest, ASubclassExtendsTheQuery) {
  const auto listing = qvr::makeRef<ListingClient>();
  listing->list = {"a=1", "b=2"};
  EXPECT_EQ(listing->authorizationURL()->absoluteString(),
            "https://login.example/authorize?a=1&b=2");
}

TEST_F(AuthorizationURLTest, EveryPairIsJoinedEvenAnEmptyOne) {
  const auto listing = qvr::makeRef<ListingClient>();
  listing->list = {"", "b=2"};
  EXPECT_EQ(listing->authorizationURL()->absoluteString(), "https://login.example/authorize?&b=2");
}

TEST_F(AuthorizationURLTest, QueriesAreAFreshListEachTime) {
  std::vector<std::string> first = client->authorizationURLQueries();
  first.clear();
  EXPECT_EQ(client->authorizationURLQueries().size(), 3u);
}

TEST(QueryPercentEncodedTest, KeepsTheSixtySixUnreservedCharacters) {
  constexpr std::string_view kept =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  EXPECT_EQ(TestClient::queryPercentEncoded(kept), kept);
}

TEST(QueryPercentEncodedTest, EscapesEveryOtherByteInUpperCaseHex) {
  constexpr std::string_view kept =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  for (char c = 1; c < 127; ++c) {
    if (kept.find(c) != std::string_view::npos) continue;
    char escaped[4];
    std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(c));
    EXPECT_EQ(TestClient::queryPercentEncoded(std::string(1, c)), escaped);
  }
}

TEST(QueryPercentEncodedTest, Cases) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {" ", "%20"},
      {"+", "%2B"},
      {"/", "%2F"},
      {":", "%3A"},
      {"=", "%3D"},
      {"*", "%2A"},
      {"%20", "%2520"},
      {"a b+c", "a%20b%2Bc"},
      {"\xC3\xA9\xF0\x9F\x98\x80", "%C3%A9%F0%9F%98%80"},
  };
  for (const auto& [text, encoded] : cases)
    EXPECT_EQ(TestClient::queryPercentEncoded(text), encoded);
}

TEST(QueryPercentEncodedTest, TextThatIsNotUTF8IsAbsent) {
  EXPECT_EQ(TestClient::queryPercentEncoded("\xFF"), std::nullopt);
  EXPECT_EQ(TestClient::queryPercentEncoded(nullptr), std::nullopt);
}

TEST_F(AuthorizationURLTest, AnAbsentEncodingPrintsAsNull) {
  client->setScope("\xFF");
  EXPECT_EQ(client->authorizationURLQueries().back(), "scope=(null)");
}

}  // namespace
