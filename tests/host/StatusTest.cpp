// qvr-oauth2 status: the facts without the tokens, and an exit status that agrees with `token`.
#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ParsedJSON.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class StatusTest : public CommandTest {
 protected:
  Printed runStatus(bool asJSON = false) {
    return collect([&] { return host::status(configuration, {google, asJSON}); });
  }

  qvr::Value json() { return parsedJSON(runStatus(true).output); }

  void storeGoogle(qvr::TextView accessToken, qvr::TextView refreshToken,
                   std::optional<double> expiresIn, double age = 0) {
    store(google, record(accessToken, refreshToken, expiresIn, age));
  }

  // The status that the command tells, and that `token` ends with for the same record. A refresh
  // that is tried is answered.
  void expectStatusLikeToken(int status) {
    const Printed printed = runStatus();
    EXPECT_EQ(printed.status, status) << printed.error;
    session->answerWith({200, R"({"access_token":"new","token_type":"Bearer","expires_in":9})"});
    const Printed token = runToken({google});
    EXPECT_EQ(token.status, status);
    EXPECT_EQ(token.error, printed.error) << "both say the same about what is wrong";
  }
};

TEST_F(StatusTest, TellsWhatIsStored) {
  install();
  store(google, QVROAuth2Token::initWithAccessToken(
                    "the-access-token", "Bearer", 3600, "the-refresh-token",
                    qvr::TextSet{"mail", "calendar"}, qvr::Date{kNow - 1080}));
  const Printed printed = runStatus();
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.error, "");
  EXPECT_EQ(printed.output,
            "Provider:      Google\n"
            "User:          user@example.org\n"
            "Kept in:       the encrypted files\n"
            "Token type:    Bearer\n"
            "Expires:       2023-03-08T21:08:40Z, in 42 minutes\n"
            "Refresh due:   no\n"
            "Refresh token: stored\n"
            "Scopes:        calendar mail\n");
}

TEST_F(StatusTest, TellsTheSameAsJSON) {
  install();
  storeGoogle("the-access-token", "the-refresh-token", 3600, 1080);
  const Printed printed = runStatus(true);
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.error, "");
  const qvr::Value value = parsedJSON(printed.output);
  EXPECT_THAT(memberNames(value),
              ElementsAre("provider", "user", "keychain", "token_type", "expires_at", "expires_in",
                          "refresh_due", "refresh_token_stored", "scopes"));
  EXPECT_EQ(memberOf(value, "provider").text(), "Google");
  EXPECT_EQ(memberOf(value, "user").text(), kUser);
  EXPECT_EQ(memberOf(value, "token_type").text(), "Bearer");
  EXPECT_EQ(memberOf(value, "expires_at").text(), "2023-03-08T21:08:40Z");
  EXPECT_EQ(memberOf(value, "expires_in"), qvr::Value(42 * 60));
  EXPECT_EQ(memberOf(value, "refresh_due"), qvr::Value(false));
  EXPECT_EQ(memberOf(value, "refresh_token_stored"), qvr::Value(true));
  EXPECT_EQ(memberOf(value, "scopes"), qvr::Value(qvr::Value::Array{"mail"}));
}

TEST_F(StatusTest, TellsThatARefreshIsDueFromAMinuteBeforeTheExpiry) {
  install();
  storeGoogle("access", "refresh", 3600, 3539);
  EXPECT_THAT(runStatus().output, HasSubstr("Refresh due:   no\n"));
  *clock = *clock + 1;
  EXPECT_THAT(runStatus().output, HasSubstr("Refresh due:   yes, the next `token` refreshes it\n"));
  EXPECT_EQ(memberOf(json(), "refresh_due"), qvr::Value(true));
}

TEST_F(StatusTest, TellsThatARecordFromBeforeTheClockWasSetBackIsDue) {
  install();
  storeGoogle("access", "refresh", 3600);
  *clock = *clock - 86400;
  EXPECT_THAT(runStatus().output, HasSubstr("Refresh due:   yes"));
  expectStatusLikeToken(host::kDone);
}

TEST_F(StatusTest, TellsHowLongAgoATokenExpired) {
  install();
  storeGoogle("access", "refresh", 3600, 3600 + 7 * 60);
  EXPECT_THAT(runStatus().output,
              HasSubstr("Expired:       2023-03-08T20:19:40Z, 7 minutes ago\n"));
  EXPECT_EQ(memberOf(json(), "expires_in"), qvr::Value(-7 * 60));
}

TEST_F(StatusTest, SaysWhatTheProviderNeverSaid) {
  install();
  store(google, QVROAuth2Token::initWithAccessToken("access", nullptr, std::nullopt, nullptr,
                                                    std::nullopt, std::nullopt));
  const Printed printed = runStatus();
  EXPECT_EQ(printed.status, host::kDone);
  for (const char* const line :
       {"Token type:    the provider never says\n", "Expires:       the provider never says\n",
        "Refresh token: none\n", "Scopes:        the provider never says\n"})
    EXPECT_THAT(printed.output, HasSubstr(line));
  for (const char* const name : {"token_type", "expires_at", "expires_in"})
    EXPECT_TRUE(memberOf(json(), name).isNull()) << name;
}

TEST_F(StatusTest, EndsWith0WhenTheTokenCanBeServed) {
  install();
  storeGoogle("access", "refresh", 3600);
  expectStatusLikeToken(host::kDone);
  storeGoogle("access", nullptr, 3600, 3599);
  expectStatusLikeToken(host::kDone);
  storeGoogle("access", nullptr, std::nullopt, 1e8);
  expectStatusLikeToken(host::kDone);
}

TEST_F(StatusTest, EndsWith0WhenTheTokenCanBeRefreshed) {
  install();
  storeGoogle("access", "refresh", 3600, 1e6);
  expectStatusLikeToken(host::kDone);
  storeGoogle("", "refresh", 3600, 1e6);
  expectStatusLikeToken(host::kDone);
}

TEST_F(StatusTest, EndsWith4WhenTheUserHasToSignInAgainAndStillTellsTheFacts) {
  install();
  storeGoogle("access", nullptr, 3600, 3600);
  const Printed printed = runStatus();
  EXPECT_EQ(printed.status, host::kSignInNeeded);
  EXPECT_THAT(printed.output, HasSubstr("Refresh token: none\n"));
  EXPECT_EQ(printed.error,
            "qvr-oauth2: The token of user@example.org at Google has expired, and there is no "
            "refresh token. Sign in again: `qvr-oauth2 sign-in Google user@example.org`\n");
  EXPECT_EQ(runStatus(true).status, host::kSignInNeeded);
  EXPECT_EQ(memberOf(json(), "refresh_token_stored"), qvr::Value(false));
}

TEST_F(StatusTest, EndsAsTokenDoesWhateverIsWrongWithTheRecord) {
  install();
  storeGoogle("access", nullptr, 3600, 3600);
  expectStatusLikeToken(host::kSignInNeeded);
  storeGoogle("access", "", 3600, 3600);
  EXPECT_THAT(runStatus().output, HasSubstr("Refresh token: none\n"));
  expectStatusLikeToken(host::kSignInNeeded);
  storeGoogle("access", "two words", 3600, 3600);
  expectStatusLikeToken(host::kSignInNeeded);
  storeGoogle("", "refresh", 3600);
  expectStatusLikeToken(host::kSignInNeeded);
  for (const char* const notPrinted : {"two\nlines", "delete\x7f", "caf\u00e9"}) {
    storeGoogle(notPrinted, "refresh", 3600);
    expectStatusLikeToken(host::kSignInNeeded);
  }
}

TEST_F(StatusTest, SaysThatARefreshNeedsTheRegistration) {
  configuration.google = {};
  install();
  storeGoogle("access", "refresh", 3600, 3600);
  expectStatusLikeToken(host::kFailed);
}

TEST_F(StatusTest, EndsWith3WhenNothingIsStored) {
  install();
  for (const bool asJSON : {false, true}) {
    const Printed printed = runStatus(asJSON);
    EXPECT_EQ(printed.status, host::kNothingStored);
    EXPECT_EQ(printed.output, "");
    EXPECT_EQ(printed.error,
              "qvr-oauth2: Nothing is stored for user@example.org at Google. Sign in first: "
              "`qvr-oauth2 sign-in Google user@example.org`\n");
  }
}

TEST_F(StatusTest, ReportsEveryKeychainFailureAsItsStatusSays) {
  install();
  storeGoogle("access", "refresh", 3600);
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(runStatus().status, host::kTryAgainLater);
  keychain->failEvery("copyMatching", qvr::errSecAuthFailed);
  EXPECT_EQ(runStatus().status, host::kFailed);
  keychain->failNothing();
  putItem(google, "garbage");
  const Printed damaged = runStatus();
  EXPECT_EQ(damaged.status, host::kFailed);
  EXPECT_EQ(damaged.output, "");
  EXPECT_THAT(damaged.error, HasSubstr("no token record that can be read"));
}

TEST_F(StatusTest, AsksNobodyAndChangesNothing) {
  install();
  storeGoogle("access", "refresh", 3600, 1e6);
  const auto before = item(google);
  const std::size_t writes = keychain->count("add") + keychain->count("update");
  runStatus();
  runStatus(true);
  EXPECT_THAT(session->requests(), IsEmpty());
  EXPECT_EQ(item(google), before);
  EXPECT_EQ(keychain->count("add") + keychain->count("update") + keychain->count("remove"), writes);
}

TEST_F(StatusTest, ShowsNoTokenThatIsAlsoATypeOrAScope) {
  install();
  store(google, QVROAuth2Token::initWithAccessToken(
                    "the-\"access\"-token", "type the-\"access\"-token", 3600, "the-refresh-token",
                    qvr::TextSet{"scope-the-refresh-token"}, qvr::Date{kNow}));
  for (const bool asJSON : {false, true}) {
    const Printed printed = runStatus(asJSON);
    EXPECT_EQ(printed.status, host::kDone);
    EXPECT_THAT(printed.output, HasSubstr("type {length = 18}"));
    EXPECT_THAT(printed.output,
                AllOf(Not(HasSubstr("access\\\"-token")), Not(HasSubstr("access\"-token")),
                      Not(HasSubstr("refresh-token"))));
  }
}

TEST_F(StatusTest, StaysInFormWhateverTheRecordHolds) {
  install();
  store(google,
        QVROAuth2Token::initWithAccessToken("access", "Be\nar\x1b[2Jer\"", 1e300, "refresh",
                                            qvr::TextSet{"a\nb", "", "c\"d"}, qvr::Date{kNow}));
  const Printed printed = runStatus();
  EXPECT_THAT(printed.output, HasSubstr("Token type:    Be?ar?[2Jer\"\n"));
  EXPECT_THAT(printed.output, HasSubstr("Expires:       9999-12-31T23:59:59Z, in 2913"));
  EXPECT_THAT(printed.output, HasSubstr("Scopes:        a?b c\"d\n"));
  EXPECT_EQ(memberOf(json(), "token_type").text(), "Be\nar\x1b[2Jer\"");
  EXPECT_EQ(memberOf(json(), "scopes"), qvr::Value(qvr::Value::Array{"a\nb", "c\"d"}));
}

}  // namespace
}  // namespace host_test
