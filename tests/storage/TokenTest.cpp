// The token record as a value, and the rule by which it is due.

#include <cmath>
#include <limits>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "tests/support/Countdown.h"
#include "tests/support/LibraryTest.h"

namespace {

using support::makeToken;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(TokenTest, KeepsWhatItIsGiven) {
  const auto token = QVROAuth2Token::initWithAccessToken(
      "at", "Bearer", 3600.5, "rt", qvr::TextSet{"mail", "openid"}, qvr::Date{700000000.25});
  EXPECT_EQ(token->accessToken(), "at");
  EXPECT_EQ(token->tokenType(), "Bearer");
  EXPECT_EQ(token->expiresIn(), 3600.5);
  EXPECT_EQ(token->refreshToken(), "rt");
  EXPECT_EQ(token->grantedScopes(), (qvr::TextSet{"mail", "openid"}));
  EXPECT_EQ(token->creationDate(), qvr::Date{700000000.25});
  EXPECT_EQ(token->retainCount(), 1);
}

TEST(TokenTest, AnyFieldMayBeAbsent) {
  const auto token = QVROAuth2Token::initWithAccessToken(nullptr, nullptr, std::nullopt, nullptr,
                                                         std::nullopt, std::nullopt);
  EXPECT_EQ(token->accessToken(), std::nullopt);
  EXPECT_EQ(token->tokenType(), std::nullopt);
  EXPECT_EQ(token->expiresIn(), std::nullopt);
  EXPECT_EQ(token->refreshToken(), std::nullopt);
  EXPECT_EQ(token->grantedScopes(), std::nullopt);
  EXPECT_EQ(token->creationDate(), std::nullopt);
}

TEST(TokenTest, EmptyIsNotAbsent) {
  const auto token =
      QVROAuth2Token::initWithAccessToken("", "", 0, "", qvr::TextSet{}, qvr::Date{});
  EXPECT_EQ(token->accessToken(), "");
  EXPECT_EQ(token->tokenType(), "");
  EXPECT_EQ(token->expiresIn(), 0);
  EXPECT_EQ(token->refreshToken(), "");
  EXPECT_EQ(token->grantedScopes(), qvr::TextSet{});
  EXPECT_EQ(token->creationDate(), qvr::Date{});
}

TEST(TokenTest, NothingIsChecked) {
  const auto token = QVROAuth2Token::initWithAccessToken("\xff", "no such type", kNaN, " ",
                                                         qvr::TextSet{""}, qvr::Date{-kInfinity});
  EXPECT_EQ(token->accessToken(), "\xff");
  EXPECT_TRUE(std::isnan(*token->expiresIn()));
  EXPECT_EQ(token->creationDate(), qvr::Date{-kInfinity});
}

TEST(TokenTest, ArgumentsAreCopied) {
  std::string accessToken = "at";
  std::string tokenType = "Bearer";
  std::string refreshToken = "rt";
  qvr::TextSet scopes = {"mail"};
  const auto token = QVROAuth2Token::initWithAccessToken(accessToken, tokenType, 1, refreshToken,
                                                         scopes, qvr::Date{});
  accessToken = tokenType = refreshToken = "changed";
  scopes.insert("more");
  EXPECT_EQ(token->accessToken(), "at");
  EXPECT_EQ(token->tokenType(), "Bearer");
  EXPECT_EQ(token->refreshToken(), "rt");
  EXPECT_EQ(token->grantedScopes(), qvr::TextSet{"mail"});
}

TEST(TokenTest, ACopyIsTheVerySameObjectWithOneMoreReference) {
  const auto token = makeToken("at", 1, "rt", 0);
  const auto copy = token->copyWithZone();
  EXPECT_EQ(copy, token);
  EXPECT_EQ(token->retainCount(), 2);
}

TEST(TokenTest, RecordsAreEqualOnlyWhenTheyAreTheSameObject) {
  EXPECT_NE(makeToken("at", 1, "rt", 0), makeToken("at", 1, "rt", 0));
}

TEST(TokenTest, SupportsSecureCoding) {
  EXPECT_TRUE(QVROAuth2Token::supportsSecureCoding());
}

struct DueCase {
  const char* what;
  std::optional<double> expiresIn;
  const char* refreshToken;
  std::optional<double> creationDate;
  bool isDue;
};

constexpr double kNow = 700000000;

constexpr DueCase kDueCases[] = {
    {"expiry is now plus 60", 3600, "rt", kNow - 3540, true},
    {"created one second later", 3600, "rt", kNow - 3539, false},
    {"created half a second earlier", 3600, "rt", kNow - 3540.5, true},
    {"just made", 3600, "rt", kNow, false},
    {"long over", 3600, "rt", kNow - 1e8, true},
    {"created in the future", 3600, "rt", kNow + 1e6, false},
    {"lifetime of 60", 60, "rt", kNow, true},
    {"lifetime of more than 60", 60.001, "rt", kNow, false},
    {"lifetime of 0", 0, "rt", kNow, true},
    {"negative lifetime", -1, "rt", kNow, true},
    {"empty refresh token", 0, "", kNow, true},
    {"no creation date counts as the reference date", 3600, "rt", std::nullopt, true},
    {"no creation date and an immense lifetime", kNow + 61, "rt", std::nullopt, false},
    {"no refresh token", 3600, nullptr, kNow, false},
    {"no refresh token, lifetime of 0", 0, nullptr, kNow, false},
    {"no refresh token, very old", 3600, nullptr, 0, false},
    {"no lifetime", std::nullopt, "rt", kNow, false},
    {"no lifetime, very old", std::nullopt, "rt", 0, false},
    {"lifetime is not a number", kNaN, "rt", kNow, false},
    {"creation date is not a number", 0, "rt", kNaN, false},
    {"endless lifetime", kInfinity, "rt", kNow, false},
    {"endlessly negative lifetime", -kInfinity, "rt", kNow, true},
    {"sum of opposite infinities is not a number", kInfinity, "rt", -kInfinity, false},
};

class TokenDueTest : public support::LibraryTest {
 protected:
  TokenDueTest() { installHost(); }

  static qvr::Ref<QVROAuth2Token> tokenOf(const DueCase& c) {
    std::optional<qvr::Date> creationDate;
    if (c.creationDate) creationDate = qvr::Date{*c.creationDate};
    return QVROAuth2Token::initWithAccessToken("at", "Bearer", c.expiresIn, c.refreshToken,
                                               std::nullopt, creationDate);
  }
};

TEST_F(TokenDueTest, ATokenIsDueFromOneMinuteBeforeItsExpiry) {
  for (const DueCase& c : kDueCases)
    EXPECT_EQ(tokenOf(c)->shouldRefreshToken(), c.isDue) << c.what;
}

TEST_F(TokenDueTest, TheClockIsReadOnEachCall) {
  const auto token = makeToken("at", 3600, "rt", kNow);
  EXPECT_FALSE(token->shouldRefreshToken());
  clock->now = kNow + 3539.5;
  EXPECT_FALSE(token->shouldRefreshToken());
  clock->now = kNow + 3540;
  EXPECT_TRUE(token->shouldRefreshToken());
  clock->now = kNow;
  EXPECT_FALSE(token->shouldRefreshToken()) << "nothing is remembered";
}

TEST_F(TokenDueTest, AClockThatTellsNoTimeMakesNothingDue) {
  clock->now = kNaN;
  EXPECT_FALSE(makeToken("at", 0, "rt", 0)->shouldRefreshToken());
}

TEST_F(TokenDueTest, OneRecordMayBeReadByManyThreads) {
  const auto token = makeToken("at", 0, "rt", kNow);
  std::atomic<int> right{0};
  support::runOnThreads(8, [&](std::size_t) {
    for (int i = 0; i < 500; ++i) {
      const auto copy = token->copyWithZone();
      right += copy->accessToken() == "at" && copy->grantedScopes() == qvr::TextSet{"mail"} &&
                       copy->shouldRefreshToken()
                   ? 1
                   : 0;
    }
  });
  EXPECT_EQ(right, 8 * 500);
  EXPECT_EQ(token->retainCount(), 1);
}

}  // namespace
