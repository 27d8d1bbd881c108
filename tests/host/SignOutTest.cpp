// qvr-oauth2 sign-out: what is revoked, what is removed, and what is kept for another try.
#include "tests/host/CommandTest.h"

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kSignedOut = "Signed out user@example.org at Google.\n";

class SignOutTest : public CommandTest {
 protected:
  void expectKept(Answer answer, int status) {
    store(google, record("old-access", "old-refresh", 3600));
    const auto before = item(google);
    session->answerWith(std::move(answer));
    const Printed printed = runSignOut(google);
    EXPECT_EQ(printed.status, status) << printed.error;
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, HasSubstr("`qvr-oauth2 sign-out --local Google user@example.org`"));
    EXPECT_EQ(item(google), before);
  }

  void expectRemoved(const Printed& printed, const std::string& sentence) {
    EXPECT_EQ(printed.status, host::kDone) << printed.error;
    EXPECT_EQ(printed.output, kSignedOut);
    EXPECT_THAT(printed.error, HasSubstr(sentence));
    EXPECT_FALSE(item(google));
  }
};

TEST_F(SignOutTest, RevokesTheRefreshTokenAtGoogleAndRemovesTheItem) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  session->answerWith({200, "{}"});
  expectRemoved(runSignOut(google), "The token was revoked at Google.");
  EXPECT_THAT(session->requests(), ElementsAre("POST https://token.google.test/revoke "
                                               "token=old-refresh&token_type_hint=refresh_token"));
}

// It would stay, and hold a token that is worth nothing.
TEST_F(SignOutTest, DoesNotRevokeWhatItCouldNotRemove) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  const auto before = item(google);
  keychain->failEvery("update", qvr::errSecWrPerm);
  const Printed printed = runSignOut(google);
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr("was not revoked and stays stored"));
  EXPECT_THAT(session->requests(), IsEmpty());
  EXPECT_EQ(item(google), before);
}

TEST_F(SignOutTest, SaysWhenToTryAgain) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  session->answerWith({503, "busy", 0, {{"Retry-After", "30"}}});
  const Printed printed = runSignOut(google);
  EXPECT_EQ(printed.status, host::kTryAgainLater);
  EXPECT_THAT(printed.error, HasSubstr("try again in 30 seconds. The token was not revoked"));
}

TEST_F(SignOutTest, RevokesTheAccessTokenWhenThatIsAllThereIs) {
  install();
  for (const qvr::Text& refreshToken : {qvr::Text(), qvr::Text(""), qvr::Text("no good")}) {
    store(google, record("old-access", refreshToken, 3600));
    session->answerWith({200, ""});
    expectRemoved(runSignOut(google), "revoked");
    EXPECT_EQ(session->requests().back(),
              "POST https://token.google.test/revoke "
              "token=old-access&token_type_hint=access_token");
  }
}

TEST_F(SignOutTest, RemovesARecordThatHoldsNothingToRevoke) {
  install();
  store(google, record(nullptr, "with space", 3600));
  expectRemoved(runSignOut(google), "no token that can be revoked");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(SignOutTest, NeedsNoRegistrationToRevoke) {
  configuration.google = {};
  install();
  store(google, record("old-access", "old-refresh", 3600));
  session->answerWith({200, ""});
  expectRemoved(runSignOut(google), "revoked");
}

TEST_F(SignOutTest, KeepsTheItemWhenTheRevocationMayWorkLater) {
  install();
  expectKept({0, "", qvr::NSURLErrorNotConnectedToInternet}, host::kTryAgainLater);
  expectKept({0, "", qvr::NSURLErrorTimedOut}, host::kTryAgainLater);
  expectKept({500, "internal trouble"}, host::kTryAgainLater);
  expectKept({400, "<html>a captive portal</html>"}, host::kTryAgainLater);
  expectKept({400, R"({"error":"temporarily_unavailable"})"}, host::kTryAgainLater);
}

TEST_F(SignOutTest, KeepsTheItemWhenNoAnswerOfTheProviderCame) {
  install();
  expectKept({0, "", qvr::NSURLErrorServerCertificateUntrusted}, host::kFailed);
  expectKept({302, ""}, host::kFailed);
  expectKept({204, ""}, host::kFailed);
}

TEST_F(SignOutTest, RemovesTheItemOfATokenThatIsDeadAlready) {
  install();
  for (const char* const body : {R"({"error":"invalid_token"})", R"({"error":"invalid_grant"})"}) {
    store(google, record("old-access", "old-refresh", 3600));
    session->answerWith({400, body});
    expectRemoved(runSignOut(google), "Google did not revoke the token");
  }
}

TEST_F(SignOutTest, SaysThatMicrosoftHasNoRevocationAndRemovesTheItem) {
  install();
  store(microsoft, record("old-access", "old-refresh", 3600));
  const Printed printed = runSignOut(microsoft);
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.output, "Signed out user@example.org at Microsoft.\n");
  EXPECT_THAT(printed.error, HasSubstr("Microsoft offers no way to revoke a token"));
  EXPECT_FALSE(item(microsoft));
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(SignOutTest, LeavesTheSameUserAtTheOtherProviderAlone) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  store(microsoft, record("old-access", "old-refresh", 3600));
  EXPECT_EQ(runSignOut(microsoft).status, host::kDone);
  EXPECT_TRUE(item(google));
}

TEST_F(SignOutTest, RemovesWithoutRevokingWhenAskedTo) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  const Printed printed = runSignOut(google, true);
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.output, kSignedOut);
  EXPECT_EQ(printed.error, "");
  EXPECT_FALSE(item(google));
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(SignOutTest, RemovesADamagedItemAndSaysThatItWasNotRevoked) {
  install();
  putItem(google, "garbage");
  expectRemoved(runSignOut(google), "is damaged, so that its token cannot be revoked");
  store(google, record("old-access", "old-refresh", 3600));
  keychain->failEvery("copyMatching", qvr::errSecDecode);
  expectRemoved(runSignOut(google), "is damaged, so that its token cannot be revoked");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(SignOutTest, HasNothingToDoWhenNothingIsStored) {
  install();
  for (const bool localOnly : {false, true}) {
    const Printed printed = runSignOut(google, localOnly);
    EXPECT_EQ(printed.status, host::kNothingStored);
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, HasSubstr("Nothing is stored"));
    EXPECT_THAT(printed.error, Not(HasSubstr("sign-in")));
  }
}

TEST_F(SignOutTest, KeepsAnItemThatTheKeychainDoesNotGiveAway) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(runSignOut(google).status, host::kTryAgainLater);
  keychain->failEvery("copyMatching", qvr::errSecAuthFailed);
  EXPECT_EQ(runSignOut(google).status, host::kFailed);
  EXPECT_TRUE(item(google));
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(SignOutTest, ReportsAnItemThatWasRevokedAndCannotBeRemoved) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  keychain->failEvery("remove", qvr::errSecWrPerm);
  session->answerWith({200, ""});
  const Printed printed = runSignOut(google);
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_EQ(printed.output, "");
  EXPECT_THAT(printed.error, HasSubstr("not yours to write"));
}

TEST_F(SignOutTest, ShowsNothingOfTheTokenOrOfTheServersBody) {
  install();
  store(google, record("old-access", "old-refresh", 3600));
  session->answerWith({500, "cannot revoke old-refresh, said the proxy"});
  const Printed printed = runSignOut(google);
  EXPECT_THAT(printed.error, Not(HasSubstr("old-refresh")));
  EXPECT_THAT(printed.error, Not(HasSubstr("proxy")));
}

}  // namespace
}  // namespace host_test
