// How a new record comes from a response and the record before it.

#include <cmath>

#include "src/manager/RefreshedToken.h"
#include "tests/manager/ManagerTest.h"

namespace {

using qvr::TextSet;
using support::IsErrorWithUserInfo;
using testing::ElementsAre;

constexpr const char* kSingular = "Missing required response parameter: %@";
constexpr const char* kPlural = "Missing required response parameters: %@";

class RefreshedTokenTest : public support::UnstartedManagerTest {
 protected:
  // The record made of a body and the old record; null, with `error` set, when there is none.
  qvr::Ref<QVROAuth2Token> refreshed(std::string_view body) {
    const auto response =
        QVROAuth2AccessTokenResponse::accessTokenResponseWithData(support::bytes(body), nullptr);
    EXPECT_TRUE(response) << body;
    error = nullptr;
    return response ? refreshedToken(*response, *old, &error) : nullptr;
  }

  // The record of a body with the required members and these.
  qvr::Ref<QVROAuth2Token> refreshedWith(std::string_view members) {
    return refreshed(R"({"access_token":"new","token_type":"type",)" + std::string(members) + "}");
  }

  void expectMissing(std::string_view body, std::string_view message) {
    EXPECT_EQ(refreshed(body), nullptr);
    EXPECT_THAT(error, IsErrorWithUserInfo(QVROAuth2ErrorDomain, 0, support::described(message)));
  }

  qvr::Ref<QVROAuth2Token> old = QVROAuth2Token::initWithAccessToken(
      "old", "old type", 1234, "old rt", TextSet{"old scope"}, qvr::Date{5});
  qvr::ErrorPtr error;
};

TEST_F(RefreshedTokenTest, EveryFieldIsTakenFromAFullResponse) {
  installHost();
  const auto token = refreshed(
      R"({"access_token":"at","token_type":"Bearer","expires_in":3600,"refresh_token":"rt",)"
      R"("scope":"mail openid"})");
  ASSERT_TRUE(token);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(token->accessToken(), "at");
  EXPECT_EQ(token->tokenType(), "Bearer");
  EXPECT_EQ(token->expiresIn(), 3600);
  EXPECT_EQ(token->refreshToken(), "rt");
  EXPECT_EQ(token->grantedScopes(), (TextSet{"mail", "openid"}));
  EXPECT_EQ(token->creationDate(), qvr::Date{clock->now});
}

TEST_F(RefreshedTokenTest, WhatTheResponseLeavesOutIsKeptFromTheOldRecord) {
  installHost();
  const auto token = refreshed(R"({"access_token":"at","token_type":"Bearer"})");
  ASSERT_TRUE(token);
  EXPECT_EQ(token->expiresIn(), 1234);
  EXPECT_EQ(token->refreshToken(), "old rt");
  EXPECT_EQ(token->grantedScopes(), TextSet{"old scope"});
  EXPECT_EQ(token->creationDate(), qvr::Date{clock->now}) << "the lifetime counts from now";
}

TEST_F(RefreshedTokenTest, ANullMemberIsLeftOut) {
  installHost();
  const auto token = refreshedWith(R"("expires_in":null,"refresh_token":null,"scope":null)");
  ASSERT_TRUE(token);
  EXPECT_EQ(token->expiresIn(), 1234);
  EXPECT_EQ(token->refreshToken(), "old rt");
  EXPECT_EQ(token->grantedScopes(), TextSet{"old scope"});
}

TEST_F(RefreshedTokenTest, WhatBothLeaveOutIsAbsent) {
  installHost();
  old = QVROAuth2Token::initWithAccessToken("old", "type", std::nullopt, nullptr, std::nullopt,
                                            std::nullopt);
  const auto token = refreshed(R"({"access_token":"at","token_type":"Bearer"})");
  ASSERT_TRUE(token);
  EXPECT_EQ(token->expiresIn(), std::nullopt);
  EXPECT_EQ(token->refreshToken(), std::nullopt);
  EXPECT_EQ(token->grantedScopes(), std::nullopt);
  EXPECT_EQ(token->creationDate(), qvr::Date{clock->now});
}

TEST_F(RefreshedTokenTest, ARotatedRefreshTokenReplacesTheOldOne) {
  installHost();
  EXPECT_EQ(refreshedWith(R"("refresh_token":"rotated")")->refreshToken(), "rotated");
  EXPECT_EQ(refreshedWith(R"("refresh_token":"")")->refreshToken(), "") << "empty is there";
}

TEST_F(RefreshedTokenTest, EmptyTextsAreThere) {
  installHost();
  const auto token = refreshed(R"({"access_token":"","token_type":""})");
  ASSERT_TRUE(token);
  EXPECT_EQ(token->accessToken(), "");
  EXPECT_EQ(token->tokenType(), "");
}

TEST_F(RefreshedTokenTest, TheTimeIsTakenOnce) {
  int reads = 0;
  host.setClock([&reads] { return qvr::Date{static_cast<double>(++reads)}; });
  installHost();
  EXPECT_EQ(refreshedWith(R"("expires_in":1)")->creationDate(), qvr::Date{1});
  EXPECT_EQ(reads, 1);
}

struct ScopeCase {
  const char* scope;
  TextSet scopes;
};

TEST_F(RefreshedTokenTest, ScopesAreWhatSingleSpacesSeparate) {
  const ScopeCase cases[] = {
      {"mail", {"mail"}},
      {"mail openid", {"mail", "openid"}},
      {"openid mail openid", {"mail", "openid"}},
      {"", {""}},
      {" ", {""}},
      {"a  b", {"a", "", "b"}},
      {" a", {"", "a"}},
      {"a ", {"a", ""}},
      {"a\tb,c", {"a\tb,c"}},
      {"https://mail.example.org/ \xC3\xA9", {"https://mail.example.org/", "\xC3\xA9"}},
  };
  for (const ScopeCase& c : cases)
    EXPECT_EQ(scopesFromText(c.scope), c.scopes) << c.scope;
}

TEST_F(RefreshedTokenTest, AnEmptyScopeIsASetOfOneEmptyText) {
  installHost();
  EXPECT_EQ(refreshedWith(R"("scope":"")")->grantedScopes(), TextSet{""});
  EXPECT_EQ(refreshedWith(R"("scope":"a  b")")->grantedScopes(), (TextSet{"a", "", "b"}));
}

struct LifetimeCase {
  const char* json;
  double expiresIn;
};

TEST_F(RefreshedTokenTest, EveryLifetimeMakesARecordThatCanBeReadBack) {
  installHost();
  const std::string digits400(400, '9');
  const std::string hugeInteger = digits400, hugeText = "\"" + digits400 + "\"";
  const LifetimeCase cases[] = {
      {"3600", 3600},
      {"3600.5", 3600.5},
      {"36e2", 3600},
      {"0", 0},
      {"-0.0", 0},
      {"-1", -1},
      {"9007199254740993", 9007199254740992.0},
      {"18446744073709551615", 18446744073709551615.0},
      {"123456789012345678901234567890", 123456789012345678901234567890.0},
      {"1e300", 1e300},
      {"-1e300", -1e300},
      {"5e-324", 5e-324},
      {"true", 1},
      {"false", 0},
      {"\"3600\"", 3600},
      {"\" 3600 seconds\"", 3600},
      {"\"3600.5\"", 3600.5},
      {"\"1e3\"", 1000},
      {"\"-5\"", -5},
      {"\"\"", 0},
      {"\"soon\"", 0},
      // Not finite, or no number: kept from the old record.
      {"1e400", 1234},
      {"-1e400", 1234},
      {"\"1e400\"", 1234},
      {hugeInteger.c_str(), 1234},
      {hugeText.c_str(), 1234},
      {"null", 1234},
      {"[3600]", 1234},
      {"{\"seconds\":3600}", 1234},
  };
  for (const LifetimeCase& c : cases) {
    const auto token = refreshedWith("\"expires_in\":" + std::string(c.json));
    ASSERT_TRUE(token) << c.json;
    EXPECT_EQ(token->expiresIn(), c.expiresIn) << c.json;
    qvr::ErrorPtr archiveError;
    const auto readBack = unarchivedToken(support::archiveOf(token), &archiveError);
    ASSERT_TRUE(readBack) << c.json;
    EXPECT_EQ(readBack->expiresIn(), c.expiresIn) << c.json;
  }
}

TEST_F(RefreshedTokenTest, AMemberOfAWrongTypeCountsAsLeftOut) {
  installHost();
  for (const char* value : {"5", "1.5", "true", "[\"x\"]", "{\"x\":\"y\"}"}) {
    const std::string text(value);
    const auto token = refreshedWith("\"refresh_token\":" + text + ",\"scope\":" + text);
    ASSERT_TRUE(token);
    EXPECT_EQ(token->refreshToken(), "old rt");
    EXPECT_EQ(token->grantedScopes(), TextSet{"old scope"});
    expectMissing(R"({"token_type":"type","access_token":)" + text + "}",
                  "Missing required response parameter: access_token");
    expectMissing(R"({"access_token":"new","token_type":)" + text + "}",
                  "Missing required response parameter: token_type");
  }
}

TEST_F(RefreshedTokenTest, MissingRequiredParametersAreNamed) {
  installHost();
  expectMissing(R"({"token_type":"Bearer","expires_in":1})",
                "Missing required response parameter: access_token");
  expectMissing(R"({"access_token":"at","refresh_token":"rt"})",
                "Missing required response parameter: token_type");
  expectMissing("{}", "Missing required response parameters: access_token, token_type");
  expectMissing(R"({"token_type":null,"access_token":null})",
                "Missing required response parameters: access_token, token_type");
  expectMissing("[]", "Missing required response parameters: access_token, token_type");
}

TEST_F(RefreshedTokenTest, TheTextsOfMissingParametersAreTranslated) {
  host.setLocalizedString(kSingular, "Es fehlt %@.");
  host.setLocalizedString(kPlural, "%@ fehlen.");
  host.setLocalizedString(", ", " und ");
  installHost();
  expectMissing(R"({"access_token":"at"})", "Es fehlt token_type.");
  expectMissing("{}", "access_token und token_type fehlen.");
}

TEST_F(RefreshedTokenTest, EachTextIsTranslatedOnItsOwn) {
  host.setLocalizedString(", ", "; ");
  installHost();
  expectMissing("{}", "Missing required response parameters: access_token; token_type");
}

TEST_F(RefreshedTokenTest, ATranslationWithoutAPlaceForTheNamesIsUsedAsItIs) {
  host.setLocalizedString(kSingular, "Unvollst\xC3\xA4ndig");
  host.setLocalizedString(kPlural, "");
  installHost();
  expectMissing(R"({"access_token":"at"})", "Unvollst\xC3\xA4ndig");
  expectMissing("{}", "");
}

}  // namespace
