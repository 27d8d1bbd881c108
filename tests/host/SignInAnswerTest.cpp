// What becomes of the provider's answer, and of a keychain that fails.
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "host/KeychainTrial.h"
#include "host/SignIn.h"
#include "tests/host/SignInFixture.h"

namespace host {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class SignInExchangeTest : public support::LibraryTest {};

TEST_F(SignInExchangeTest, SignalCancelsTheExchange) {
  installHost();
  const Pipe signals;
  interrupt(signals);
  SignInOptions options;
  options.account = {"Google", "user@example.org"};
  const auto client = makeSignInClient(options);
  const auto answer = exchangeCode(*client, "code", options.account, signals.readEnd.number());
  ASSERT_TRUE(std::holds_alternative<Failure>(answer));
  EXPECT_EQ(std::get<Failure>(answer).status, kFailed);
  EXPECT_THAT(std::get<Failure>(answer).sentence, HasSubstr("cancelled"));
  EXPECT_EQ(session->last().state(), qvr::URLSessionDataTask::State::kCanceling);
  runAll();  // the handler that comes late finds its own things alive
}

class SignInAnswerTest : public SignInTest {
 protected:
  SignInAnswerTest() { acceptInTheBrowser(); }
};

struct BadAnswer {
  std::int64_t status;
  const char* body;
  int exitStatus;
  const char* complaint;
};

TEST_F(SignInAnswerTest, AnswerThatIsNoTokenFailsInWordsAndStoresNothing) {
  const BadAnswer answers[] = {
      {200, "{}", kFailed, "has no token type"},
      {200, R"({"token_type": "Bearer"})", kFailed, "has no access token"},
      {200, R"({"access_token": "at-at-at"})", kFailed, "has no token type"},
      {200, R"({"access_token": 12345, "token_type": "Bearer"})", kFailed, "has no access token"},
      {200, R"({"access_token": "", "token_type": "Bearer"})", kFailed, "has no access token"},
      {200, R"({"access_token": "at-at-at", "token_type": 1})", kFailed, "has no token type"},
      {200, "<html>please log in</html>", kTryAgainLater, "cannot be read"},
      {200, "", kTryAgainLater, "cannot be read"},
      {200, R"({"access_token": "at)", kTryAgainLater, "cannot be read"},
      {400, R"({"error": "invalid_grant"})", kSignInNeeded, "invalid_grant"},
      {400, R"({"error": "invalid_client"})", kFailed, "invalid_client"},
      {302, "", kFailed, "302"},
      {429, R"({"error": "temporarily_unavailable"})", kTryAgainLater, "temporarily_unavailable"},
      {503, "later", kTryAgainLater, "503"},
  };
  for (const BadAnswer& answer : answers) {
    answerWith(answer.status, answer.body);
    EXPECT_EQ(run(), answer.exitStatus) << answer.body;
    EXPECT_THAT(error, HasSubstr(answer.complaint));
    EXPECT_THAT(out, testing::IsEmpty());
    EXPECT_EQ(keychain->itemCount(), 0u);
  }
}

TEST_F(SignInAnswerTest, DeeplyNestedAnswerIsUnreadable) {
  answerWith(200, std::string(10000, '['));
  EXPECT_EQ(run(), kTryAgainLater);
}

TEST_F(SignInAnswerTest, TransportErrorKeepsItsAdvice) {
  session->answerWith({0, "", qvr::NSURLErrorCannotConnectToHost});
  EXPECT_EQ(run(), kTryAgainLater);
  session->answerWith({0, "", qvr::NSURLErrorServerCertificateUntrusted});
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, HasSubstr("certificate"));
}

TEST_F(SignInAnswerTest, BusyProviderSaysWhenToTryAgain) {
  session->answerWith({503, "later", 0, {{"Retry-After", "30"}}});
  EXPECT_EQ(run(), kTryAgainLater);
  EXPECT_THAT(error, HasSubstr("try again in 30 seconds."));
}

struct Lifetime {
  const char* expiresIn;
  std::optional<double> seconds;
};

TEST_F(SignInAnswerTest, LifetimeOfAnyKindMakesARecordThatCanBeReadBack) {
  const Lifetime lifetimes[] = {
      {R"("3600")", 3600}, {"3600.5", 3600.5},     {"-1", -1},
      {"1e18", 1e18},      {"null", std::nullopt}, {"[1]", std::nullopt},
  };
  for (const Lifetime& lifetime : lifetimes) {
    answerWith(200,
               R"({"access_token": "the-access-token", "token_type": "Bearer", "expires_in": )" +
                   std::string(lifetime.expiresIn) + "}");
    EXPECT_EQ(run(), kDone) << lifetime.expiresIn << error;
    const auto record = storedRecord();
    ASSERT_TRUE(record) << lifetime.expiresIn;
    EXPECT_EQ(record->expiresIn(), lifetime.seconds) << lifetime.expiresIn;
  }
}

TEST_F(SignInAnswerTest, ScopesAreThoseOfTheAnswer) {
  options.scope = "mail openid";
  answerWith(
      200,
      R"({"access_token": "the-access-token", "token_type": "Bearer", "scope": "mail  other"})");
  ASSERT_EQ(run(), kDone);
  EXPECT_EQ(storedRecord()->grantedScopes(), (qvr::TextSet{"", "mail", "other"}));
}

TEST_F(SignInAnswerTest, MissingRefreshTokenIsExplained) {
  answerWith(200,
             R"({"access_token": "the-access-token", "token_type": "Bearer", "expires_in": 3599})");
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, AllOf(HasSubstr("no refresh token"), HasSubstr("in 60 minutes"),
                           HasSubstr("offline_access")));
  options.account = google;
  answerWith(200, R"({"access_token": "the-access-token", "token_type": "Bearer"})");
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, AllOf(HasSubstr("no refresh token"), HasSubstr("Remove the app's access")));
}

TEST_F(SignInAnswerTest, ScopesThatWereNotGrantedAreNamed) {
  options.scope = "mail calendar offline_access";
  answerWith(200, R"({"access_token": "the-access-token", "token_type": "Bearer",
                       "refresh_token": "the-refresh-token", "scope": "Mail"})");
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, HasSubstr("missing: calendar."));
}

TEST_F(SignInAnswerTest, CompleteAnswerIsNotCommentedOn) {
  answerWithAToken();
  ASSERT_EQ(run(), kDone);
  EXPECT_THAT(error, Not(HasSubstr("Warning")));
}

TEST_F(SignInAnswerTest, StoreThatFailsMeansNotSignedIn) {
  answerWithAToken();
  keychain->failEvery("add", qvr::errSecDiskFull);
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, AllOf(HasSubstr("could not be stored"), HasSubstr("disk is full")));
  EXPECT_THAT(out, testing::IsEmpty());
}

TEST_F(SignInAnswerTest, StoreThatIsLockedMeansTryAgain) {
  answerWithAToken();
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(run(), kTryAgainLater);
  EXPECT_THAT(out, testing::IsEmpty());
}

TEST_F(SignInAnswerTest, EarlierRecordIsReplaced) {
  answerWithAToken();
  ASSERT_EQ(run(), kDone);
  answerWith(200, R"({"access_token": "another-access-token", "token_type": "Bearer"})");
  ASSERT_EQ(run(), kDone);
  EXPECT_EQ(storedRecord()->accessToken(), "another-access-token");
  EXPECT_EQ(keychain->itemCount(), 1u);
}

TEST_F(SignInAnswerTest, FailedSignInLeavesTheEarlierRecord) {
  answerWithAToken();
  ASSERT_EQ(run(), kDone);
  answerWith(503, "later");
  ASSERT_EQ(run(), kTryAgainLater);
  EXPECT_EQ(storedRecord()->accessToken(), "the-access-token");
}

TEST_F(SignInAnswerTest, KeychainThatTakesItemsIsFoundFineAndLeftEmpty) {
  EXPECT_FALSE(keychainProblem(*keychain, kEncryptedFile));
  EXPECT_EQ(keychain->count("add"), 1u);
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(SignInAnswerTest, KeychainProblemIsFoundBeforeTheBrowserOpens) {
  keychain->failEvery("add", qvr::errSecWrPerm);
  const auto noPermission = keychainProblem(*keychain, kEncryptedFile);
  ASSERT_TRUE(noPermission);
  EXPECT_EQ(noPermission->status, kFailed);
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  const auto locked = keychainProblem(*keychain, kEncryptedFile);
  ASSERT_TRUE(locked);
  EXPECT_EQ(locked->status, kTryAgainLater);
}

TEST_F(SignInAnswerTest, SignInWithoutARegistrationSaysWhatToDo) {
  configuration.microsoft.applicationIdentifier.clear();
  const host_test::Printed printed =
      host_test::collect([this] { return signIn(configuration, options); });
  EXPECT_EQ(printed.status, kFailed);
  EXPECT_THAT(printed.error, HasSubstr("holds no application_identifier"));
  EXPECT_TRUE(keychain->calls().empty());
}

TEST_F(SignInAnswerTest, SignInStopsAtAKeychainThatDoesNotStore) {
  keychain->failEvery("add", qvr::errSecDiskFull);
  const host_test::Printed printed =
      host_test::collect([this] { return signIn(configuration, options); });
  EXPECT_EQ(printed.status, kFailed);
  EXPECT_THAT(printed.error, AllOf(HasSubstr("disk is full"), Not(HasSubstr("https://"))));
}

}  // namespace

}  // namespace host
