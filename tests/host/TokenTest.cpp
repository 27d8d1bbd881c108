// qvr-oauth2 token: what it prints, what it sends, what it stores, and what it does when each of
// these goes wrong.
#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "host/Record.h"
#include "tests/host/CommandTest.h"

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kAnswer =
    R"({"access_token":"new-access","token_type":"Bearer","expires_in":3600})";
constexpr const char* kRotatingAnswer =
    R"({"access_token":"new-access","token_type":"Bearer","expires_in":3600,)"
    R"("refresh_token":"new-refresh","scope":"mail calendar"})";

class TokenTest : public CommandTest {
 protected:
  // A stored record that is due.
  void storeDue(const host::Account& account) {
    store(account, record("old-access", "old-refresh", 3600, 3600));
  }

  // The status and sentence of an answer to a refresh, which must print and store nothing.
  void expectFailure(Answer answer, int status, const std::string& sentence) {
    SCOPED_TRACE(sentence);
    storeDue(google);
    const auto before = item(google);
    session->answerWith(std::move(answer));
    const Printed printed = runToken({google});
    EXPECT_EQ(printed.status, status);
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, HasSubstr(sentence));
    EXPECT_EQ(item(google), before);
  }
};

TEST_F(TokenTest, PrintsAFreshTokenAndANewlineAndNothingElse) {
  install();
  store(google, record("access", "refresh", 3600));
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.output, "access\n");
  EXPECT_EQ(printed.error, "");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(TokenTest, RefreshesADueTokenAndStoresTheRotatedOneBeforePrinting) {
  install();
  storeDue(google);
  session->answerWith({200, kRotatingAnswer});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kDone) << printed.error;
  EXPECT_EQ(printed.output, "new-access\n");
  EXPECT_THAT(session->requests(),
              ElementsAre("POST https://token.google.test/token client_id=example-client&"
                          "client_secret=&refresh_token=old-refresh&grant_type=refresh_token"));
  qvr::ErrorPtr error;
  const auto stored = host::readRecord(google, &error);
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->refreshToken(), "new-refresh");
  EXPECT_EQ(stored->grantedScopes(), (qvr::TextSet{"calendar", "mail"}));
  EXPECT_EQ(runToken({google}).output, "new-access\n");
  EXPECT_EQ(session->requests().size(), 1u);
}

TEST_F(TokenTest, RefreshesAtMicrosoftWithoutASecretAndKeepsTheRefreshTokenThatWasNotRotated) {
  install();
  storeDue(microsoft);
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({microsoft}).output, "new-access\n");
  EXPECT_THAT(session->requests(),
              ElementsAre("POST https://login.microsoft.test/common/oauth2/v2.0/token "
                          "client_id=01234567-89ab-cdef-0123-456789abcdef&"
                          "refresh_token=old-refresh&grant_type=refresh_token"));
  qvr::ErrorPtr error;
  EXPECT_EQ(host::readRecord(microsoft, &error)->refreshToken(), "old-refresh");
}

TEST_F(TokenTest, IsDueFromOneMinuteBeforeTheExpiry) {
  install();
  store(google, record("access", "refresh", 3600, 3539));
  EXPECT_EQ(runToken({google}).output, "access\n");
  *clock = *clock + 1;
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({google}).output, "new-access\n");
}

TEST_F(TokenTest, ForceRefreshesATokenThatHasNotExpired) {
  install();
  store(google, record("access", "refresh", 3600));
  session->answerWith({200, kAnswer});
  const Printed printed = runToken({google, true});
  EXPECT_EQ(printed.status, host::kDone) << printed.error;
  EXPECT_EQ(printed.output, "new-access\n");
  EXPECT_EQ(session->requests().size(), 1u);
  EXPECT_EQ(runToken({google}).output, "new-access\n");
}

TEST_F(TokenTest, WritesTheOldRecordBackBeforeTheRefreshIsSent) {
  install();
  storeDue(google);
  std::vector<std::size_t> sentAtWrite;
  keychain->onCall([&](const support::FakeKeychain::Call& call) {
    if (call.operation == "update") sentAtWrite.push_back(session->requests().size());
  });
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({google}).status, host::kDone);
  EXPECT_THAT(sentAtWrite, ElementsAre(0u, 1u));
}

TEST_F(TokenTest, SendsNoRefreshWhenTheStoreDoesNotTakeTheRecord) {
  struct Case {
    std::int32_t keychainStatus;
    int status;
  };
  install();
  storeDue(google);
  for (const Case& each :
       {Case{qvr::errSecDiskFull, host::kFailed}, Case{qvr::errSecWrPerm, host::kFailed},
        Case{qvr::errSecInteractionNotAllowed, host::kTryAgainLater},
        Case{qvr::errSecNotAvailable, host::kTryAgainLater}}) {
    keychain->failEvery("update", each.keychainStatus);
    const Printed printed = runToken({google});
    EXPECT_EQ(printed.status, each.status) << each.keychainStatus;
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, HasSubstr("No refresh was sent"));
  }
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(TokenTest, PrintsNothingWhenTheRefreshedTokenCannotBeStored) {
  install();
  storeDue(google);
  keychain->failWith([this](const support::FakeKeychain::Call& call) {
    return call.operation == "update" && !session->requests().empty() ? qvr::errSecDiskFull : 0;
  });
  session->answerWith({200, kRotatingAnswer});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_EQ(printed.output, "");
  EXPECT_THAT(printed.error, HasSubstr("could not be stored"));
  EXPECT_THAT(printed.error, HasSubstr("disk is full"));
}

TEST_F(TokenTest, TellsFailuresOfARefreshApartAndLeavesTheRecordUntouched) {
  install();
  expectFailure({400, R"({"error":"invalid_grant","error_description":"Token was revoked."})"},
                host::kSignInNeeded,
                "Google refused (invalid_grant): Token was revoked. Sign in again: "
                "`qvr-oauth2 sign-in Google user@example.org`");
  expectFailure({400, R"({"error":"interaction_required"})"}, host::kSignInNeeded, "Sign in again");
  expectFailure({401, R"({"error":"invalid_client"})"}, host::kFailed, "Check the registration");
  expectFailure({503, "busy"}, host::kTryAgainLater, "HTTP status 503 (service unavailable)");
  expectFailure({302, ""}, host::kFailed, "HTTP status 302");
  expectFailure({200, "<html>Log in to this hotel</html>"}, host::kTryAgainLater, "cannot be read");
  expectFailure({200, ""}, host::kTryAgainLater, "cannot be read");
  expectFailure({200, "{}"}, host::kFailed, "Missing required response parameters");
  expectFailure({0, "", qvr::NSURLErrorTimedOut}, host::kTryAgainLater,
                "(token.google.test) got no answer in time");
  expectFailure({0, "", qvr::NSURLErrorNotConnectedToInternet}, host::kTryAgainLater,
                "there is no network");
  expectFailure({0, "", qvr::NSURLErrorServerCertificateUntrusted}, host::kFailed,
                "certificate is not trusted");
}

TEST_F(TokenTest, NeverRepeatsATokenThatTheServerEchoes) {
  install();
  storeDue(google);
  session->answerWith(
      {400, R"({"error":"invalid_request","error_description":"bad token old-refresh\u001b[2J"})"});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr("bad token {length = 11} [2J"));
  EXPECT_THAT(printed.error, Not(HasSubstr("old-refresh")));
}

TEST_F(TokenTest, NeedsARefreshTokenToForceARefresh) {
  install();
  for (const qvr::Text& refreshToken : {qvr::Text(), qvr::Text("")}) {
    store(google, record("access", refreshToken, 3600));
    const Printed printed = runToken({google, true});
    EXPECT_EQ(printed.status, host::kSignInNeeded);
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, HasSubstr("No refresh token is stored"));
  }
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(TokenTest, DoesNotSendARefreshTokenWithASpaceWhichTheLibraryWouldRaiseOn) {
  install();
  for (const char* const refreshToken : {"two words", "trailing "}) {
    store(google, record("access", refreshToken, 3600, 3600));
    const Printed printed = runToken({google});
    EXPECT_EQ(printed.status, host::kSignInNeeded);
    EXPECT_THAT(printed.error, HasSubstr("cannot be sent"));
    EXPECT_THAT(printed.error, Not(HasSubstr(refreshToken)));
  }
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(TokenTest, NeedsTheRegistrationForARefreshOnly) {
  configuration.google = {};
  install();
  store(google, record("access", "refresh", 3600));
  EXPECT_EQ(runToken({google}).output, "access\n");
  *clock = *clock + 3600;
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr("holds no client_identifier under [google]"));
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(TokenTest, ServesATokenWithoutARefreshTokenUntilItExpires) {
  install();
  store(google, record("access", nullptr, 3600, 3599));
  EXPECT_EQ(runToken({google}).output, "access\n");
  *clock = *clock + 1;
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kSignInNeeded);
  EXPECT_EQ(printed.output, "");
  EXPECT_THAT(printed.error, HasSubstr("has expired, and there is no refresh token"));
}

TEST_F(TokenTest, ServesATokenWithoutALifetimeForEver) {
  install();
  store(google, record("access", "refresh", std::nullopt, 1e8));
  EXPECT_EQ(runToken({google}).output, "access\n");
}

TEST_F(TokenTest, PrintsNoTokenThatIsNotOneLineOfVisibleCharacters) {
  install();
  for (const qvr::Text& accessToken : {qvr::Text(), qvr::Text(""), qvr::Text("two\nlines"),
                                       qvr::Text("bell\a"), qvr::Text("caf\u00e9")}) {
    store(google, record(accessToken, "refresh", 3600));
    const Printed printed = runToken({google});
    EXPECT_EQ(printed.status, host::kSignInNeeded);
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, HasSubstr("`qvr-oauth2 sign-in Google user@example.org`"));
    if (accessToken && !accessToken->empty()) {
      EXPECT_THAT(printed.error, Not(HasSubstr(*accessToken)));
    }
  }
}

TEST_F(TokenTest, SaysToSignInWhenNothingIsStored) {
  install();
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kNothingStored);
  EXPECT_EQ(printed.output, "");
  EXPECT_EQ(printed.error,
            "qvr-oauth2: Nothing is stored for user@example.org at Google. Sign in first: "
            "`qvr-oauth2 sign-in Google user@example.org`\n");
}

TEST_F(TokenTest, KeepsTheAccountsOfTheTwoProvidersApart) {
  install();
  store(google, record("access", "refresh", 3600));
  EXPECT_EQ(runToken({microsoft}).status, host::kNothingStored);
}

TEST_F(TokenTest, ReportsADamagedItemAndLeavesItAlone) {
  install();
  for (const char* const bytes : {"", "garbage", "bplist00"}) {
    putItem(google, bytes);
    const auto before = item(google);
    const Printed printed = runToken({google});
    EXPECT_EQ(printed.status, host::kFailed);
    EXPECT_THAT(printed.error, HasSubstr("no token record that can be read"));
    EXPECT_EQ(item(google), before);
  }
}

TEST_F(TokenTest, ReportsEveryKeychainFailureAsItsStatusSays) {
  install();
  storeDue(google);
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(runToken({google}).status, host::kTryAgainLater);
  keychain->failEvery("copyMatching", qvr::errSecAuthFailed);
  EXPECT_EQ(runToken({google}).status, host::kFailed);
  keychain->failEvery("copyMatching", qvr::errSecDecode);
  EXPECT_THAT(runToken({google}).error, HasSubstr("is damaged"));
}

// Fails keychain call 1, 2, 3... of a refresh until none is left to fail. Whatever fails, nothing
// is printed and the item is the old one.
TEST_F(TokenTest, SurvivesAFailureOfEachKeychainCallInTurn) {
  install();
  int failures = 0;
  for (int failing = 1;; ++failing) {
    keychain->failNothing();
    storeDue(google);
    const auto before = item(google);
    int calls = 0;
    keychain->failWith([&](const auto&) { return ++calls == failing ? qvr::errSecIO : 0; });
    session->answerWith({200, kRotatingAnswer});
    const Printed printed = runToken({google});
    if (calls < failing) {
      EXPECT_EQ(printed.output, "new-access\n");
      break;
    }
    ++failures;
    EXPECT_EQ(printed.status, host::kFailed);
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(printed.error, StartsWith("qvr-oauth2: "));
    EXPECT_EQ(item(google), before);
  }
  EXPECT_EQ(failures, 6);  // two reads, and two writes of a probe and an update each
}

}  // namespace
}  // namespace host_test
