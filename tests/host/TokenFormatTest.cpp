// The forms in which `token` prints an access token, read by others' programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "host/Console.h"
#include "host/TokenFormat.h"
#include "tests/host/DecodedBase64.h"
#include "tests/host/ParsedJSON.h"

namespace host_test {
namespace {

using host::TokenFormat;
using testing::ElementsAre;

constexpr qvr::Date kNow{700000000};  // 2023-03-08T20:26:40Z

const host::Account kAccount{"Google", "user@example.org"};

qvr::Ref<QVROAuth2Token> record(qvr::TextView accessToken,
                                std::optional<double> expiresIn = std::nullopt,
                                qvr::TextView tokenType = "Bearer",
                                std::optional<qvr::TextSet> scopes = std::nullopt) {
  return QVROAuth2Token::initWithAccessToken(accessToken, tokenType, expiresIn, "the-refresh-token",
                                             std::move(scopes), kNow);
}

std::string formatted(const TokenFormat& format, const host::Account& account = kAccount,
                      const std::string& token = "the-token") {
  return host::formattedToken(format, account, *record(token), kNow);
}

qvr::Value jsonOf(const qvr::Ref<QVROAuth2Token>& token, qvr::Date now = kNow,
                  const host::Account& account = kAccount) {
  const std::string text =
      host::formattedToken({.kind = TokenFormat::Kind::kJSON}, account, *token, now);
  EXPECT_TRUE(host::isUTF8(text));
  return parsedJSON(text);
}

TEST(TokenFormatName, StandsForAKind) {
  EXPECT_EQ(host::tokenFormatNamed("raw"), TokenFormat::Kind::kRaw);
  EXPECT_EQ(host::tokenFormatNamed("xoauth2"), TokenFormat::Kind::kXOAuth2);
  EXPECT_EQ(host::tokenFormatNamed("oauthbearer"), TokenFormat::Kind::kOAuthBearer);
  EXPECT_EQ(host::tokenFormatNamed("json"), TokenFormat::Kind::kJSON);
  for (const char* const name : {"", "RAW", "xoauth", "json ", "bearer"})
    EXPECT_FALSE(host::tokenFormatNamed(name)) << name;
}

TEST(RawFormat, IsTheTokenAlone) {
  EXPECT_EQ(formatted({}), "the-token");
}

TEST(XOAuth2Format, IsTheInitialResponseOfTheUserAndTheToken) {
  EXPECT_EQ(decodedBase64(formatted({.kind = TokenFormat::Kind::kXOAuth2})),
            "user=user@example.org\x01"
            "auth=Bearer the-token\x01\x01");
}

TEST(XOAuth2Format, LeavesTheUserAsItIs) {
  const host::Account account{"Google", "a,b=c \u00e9@example.org"};
  EXPECT_EQ(decodedBase64(formatted({.kind = TokenFormat::Kind::kXOAuth2}, account)),
            "user=a,b=c \u00e9@example.org\x01"
            "auth=Bearer the-token\x01\x01");
}

TEST(OAuthBearerFormat, IsTheExampleOfRFC7628) {
  EXPECT_EQ(
      formatted(
          {.kind = TokenFormat::Kind::kOAuthBearer, .host = "server.example.com", .port = 143},
          {"Google", "user@example.com"}, "vF9dft4qmTc2Nvb3RlckBhbHRhdmlzdGEuY29tCg=="),
      "bixhPXVzZXJAZXhhbXBsZS5jb20sAWhvc3Q9c2VydmVyLmV4YW1wbGUuY29tAXBvcnQ9MTQzAWF1dGg9QmVhc"
      "mVyIHZGOWRmdDRxbVRjMk52YjNSbGNrQmhiSFJoZG1semRHRXVZMjl0Q2c9PQEB");
}

TEST(OAuthBearerFormat, LeavesOutWhatIsNotKnownOfTheServer) {
  const auto decoded = [](const TokenFormat& format) { return decodedBase64(formatted(format)); };
  const TokenFormat::Kind kind = TokenFormat::Kind::kOAuthBearer;
  const std::string start = "n,a=user@example.org,\x01";
  const std::string end = "auth=Bearer the-token\x01\x01";
  EXPECT_EQ(decoded({.kind = kind}), start + end);
  EXPECT_EQ(decoded({.kind = kind, .host = "imap.example.org"}),
            start + "host=imap.example.org\x01" + end);
  EXPECT_EQ(decoded({.kind = kind, .port = 993}), start + "port=993\x01" + end);
}

TEST(OAuthBearerFormat, EscapesTheUserAsRFC5801Says) {
  const host::Account account{"Google", "a,b=c=2C@example.org"};
  EXPECT_EQ(decodedBase64(formatted({.kind = TokenFormat::Kind::kOAuthBearer}, account)),
            "n,a=a=2Cb=3Dc=3D2C@example.org,\x01"
            "auth=Bearer the-token\x01\x01");
}

TEST(SASLFormats, AreOneLineOfAnyLength) {
  const std::string token(20'000, 'x');
  EXPECT_EQ(decodedBase64(formatted({.kind = TokenFormat::Kind::kXOAuth2}, kAccount, token)),
            "user=user@example.org\x01"
            "auth=Bearer " +
                token + "\x01\x01");
}

TEST(JSONFormat, TellsTheAccountTheTokenItsTypeExpiryAndScopes) {
  const qvr::Value value =
      jsonOf(record("the-token", 3600, "Bearer", qvr::TextSet{"mail", "calendar"}),
             {kNow.timeIntervalSinceReferenceDate + 60});
  EXPECT_THAT(memberNames(value), ElementsAre("provider", "user", "access_token", "token_type",
                                              "expires_at", "expires_in", "scopes"));
  EXPECT_EQ(memberOf(value, "provider").text(), "Google");
  EXPECT_EQ(memberOf(value, "user").text(), "user@example.org");
  EXPECT_EQ(memberOf(value, "access_token").text(), "the-token");
  EXPECT_EQ(memberOf(value, "token_type").text(), "Bearer");
  EXPECT_EQ(memberOf(value, "expires_at").text(), "2023-03-08T21:26:40Z");
  EXPECT_EQ(memberOf(value, "expires_in"), qvr::Value(3540));
  EXPECT_EQ(memberOf(value, "scopes"), qvr::Value(qvr::Value::Array{"calendar", "mail"}));
}

TEST(JSONFormat, HasNullsAndNoScopesForWhatTheRecordDoesNotSay) {
  const qvr::Value value = jsonOf(record("the-token", std::nullopt, nullptr));
  EXPECT_TRUE(memberOf(value, "token_type").isNull());
  EXPECT_TRUE(memberOf(value, "expires_at").isNull());
  EXPECT_TRUE(memberOf(value, "expires_in").isNull());
  EXPECT_EQ(memberOf(value, "scopes"), qvr::Value(qvr::Value::Array{}));
}

TEST(JSONFormat, RoundsDownAndGoesBelowZero) {
  EXPECT_EQ(memberOf(jsonOf(record("t", 1.75)), "expires_in"), qvr::Value(1));
  EXPECT_EQ(memberOf(jsonOf(record("t", 0)), "expires_in"), qvr::Value(0));
  EXPECT_EQ(memberOf(jsonOf(record("t", -0.5)), "expires_in"), qvr::Value(-1));
}

TEST(JSONFormat, StaysJSONWhateverTheLifetime) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double seconds : {1e300, kInfinity}) {
    const qvr::Value value = jsonOf(record("t", seconds));
    EXPECT_EQ(memberOf(value, "expires_at").text(), "9999-12-31T23:59:59Z");
    EXPECT_GT(memberOf(value, "expires_in").numberValue(), 1e11);
  }
  for (const double seconds : {-1e300, -kInfinity})
    EXPECT_EQ(memberOf(jsonOf(record("t", seconds)), "expires_at").text(), "0000-01-01T00:00:00Z");
  const qvr::Value none = jsonOf(record("t", std::numeric_limits<double>::quiet_NaN()));
  EXPECT_TRUE(memberOf(none, "expires_at").isNull());
  EXPECT_TRUE(memberOf(none, "expires_in").isNull());
}

TEST(JSONFormat, QuotesWhateverTheRecordHolds) {
  const qvr::TextSet scopes{"", "a\"b", "line\nfeed", "\xff"};
  const qvr::Value value = jsonOf(record("tok\\en\"", 3600, "Bear\x1b[2Jer\xc3", scopes), kNow,
                                  {"Google", "\"\\,=\u00e9@example.org"});
  EXPECT_EQ(memberOf(value, "user").text(), "\"\\,=\u00e9@example.org");
  EXPECT_EQ(memberOf(value, "access_token").text(), "tok\\en\"");
  EXPECT_EQ(memberOf(value, "token_type").text(), "Bear\x1b[2Jer?");
  EXPECT_EQ(memberOf(value, "scopes"), qvr::Value(qvr::Value::Array{"a\"b", "line\nfeed", "?"}));
}

TEST(Formats, NeverHoldTheRefreshToken) {
  for (const auto kind : {TokenFormat::Kind::kRaw, TokenFormat::Kind::kXOAuth2,
                          TokenFormat::Kind::kOAuthBearer, TokenFormat::Kind::kJSON}) {
    std::string text = formatted({.kind = kind});
    if (kind == TokenFormat::Kind::kXOAuth2 || kind == TokenFormat::Kind::kOAuthBearer)
      text = decodedBase64(text);
    EXPECT_THAT(text, testing::HasSubstr("the-token"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("the-refresh-token")));
  }
}

}  // namespace
}  // namespace host_test
