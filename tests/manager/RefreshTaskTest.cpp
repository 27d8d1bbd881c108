// The refresh task: how it is made, and what becomes of its answer.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/manager/ManagerTest.h"

namespace {

using support::HasError;
using support::kRefreshedBody;
using support::kUser;
using support::makeToken;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kMethod =
    "*** -[QVROAuth2TokenManager "
    "taskForRefreshingAccessToken:withProvider:username:completionHandler:]: ";

class RefreshTaskTest : public support::ManagerTest {
 protected:
  qvr::Ref<qvr::URLSessionDataTask> makeTask(const qvr::Ref<QVROAuth2Token>& token,
                                             qvr::TextView provider = QVROAuth2ProviderGoogle) {
    return manager->taskForRefreshingAccessToken(token, provider, kUser, note("r"));
  }

  // The reason with which making the task raises.
  template <class Expected>
  std::string reasonOf(const qvr::Ref<QVROAuth2Token>& token, qvr::TextView provider) {
    try {
      (void)makeTask(token, provider);
    } catch (const Expected& exception) {
      return exception.reason().value_or("(null)");
    }
    return "nothing was raised";
  }
};

TEST_F(RefreshTaskTest, IsNotYetResumed) {
  const auto task = makeTask(dueToken());
  ASSERT_TRUE(task);
  EXPECT_EQ(task->state(), qvr::URLSessionDataTask::State::kSuspended);
  EXPECT_EQ(session->tasks().size(), 1);
  runAll();
  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(RefreshTaskTest, PostsTheRefreshTokenToGoogle) {
  (void)makeTask(dueToken());
  const qvr::URLRequest& sent = session->last().request();
  EXPECT_EQ(sent.url.absoluteString(), "https://oauth2.googleapis.com/token");
  EXPECT_EQ(sent.HTTPMethod, "POST");
  EXPECT_EQ(sent.valueForHTTPHeaderField("Accept"), "application/json");
  EXPECT_EQ(sent.valueForHTTPHeaderField("Content-Type"),
            "application/x-www-form-urlencoded; charset=utf-8");
  EXPECT_EQ(session->last().body(),
            "client_id=example-client&client_secret=&refresh_token=rt&grant_type=refresh_token");
}

TEST_F(RefreshTaskTest, PostsTheRefreshTokenToMicrosoft) {
  (void)makeTask(dueToken(), QVROAuth2ProviderMicrosoft);
  EXPECT_EQ(session->last().request().url.absoluteString(),
            "https://login.microsoftonline.com/common/oauth2/v2.0/token");
  EXPECT_EQ(session->last().body(),
            "client_id=01234567-89ab-cdef-0123-456789abcdef&refresh_token=rt&"
            "grant_type=refresh_token");
}

TEST_F(RefreshTaskTest, ATokenWithoutARefreshTokenRaises) {
  const std::string reason = std::string(kMethod) + "nil token.refreshToken";
  for (const char* provider : {"Google", "Microsoft", "Elsewhere"}) {
    EXPECT_EQ(reasonOf<qvr::InvalidArgumentException>(makeToken("at", 0, nullptr, 0), provider),
              reason)
        << "the refresh token is checked before the provider";
  }
  EXPECT_EQ(reasonOf<qvr::InvalidArgumentException>(nullptr, "Google"), reason);
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(RefreshTaskTest, AnyOtherProviderNameRaises) {
  const std::pair<qvr::TextView, const char*> cases[] = {
      {"google", "google"},       {"GOOGLE", "GOOGLE"}, {"microsoft", "microsoft"},
      {"Google ", "Google "},     {"Goog", "Goog"},     {"", ""},
      {"Elsewhere", "Elsewhere"}, {nullptr, "(null)"},
  };
  for (const auto& [provider, printed] : cases) {
    EXPECT_EQ(reasonOf<qvr::InternalInconsistencyException>(dueToken(), provider),
              std::string(kMethod) + "invalid provider name \"" + printed + "\"");
  }
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(RefreshTaskTest, AnEmptyRefreshTokenIsOne) {
  (void)makeTask(makeToken("at", 0, "", 0));
  EXPECT_THAT(session->last().body(), testing::HasSubstr("&refresh_token=&"));
}

TEST_F(RefreshTaskTest, TheAnswerBecomesANewRecordOnTheSessionsQueue) {
  makeTask(dueToken())->resume();
  clock->now += 5;
  session->last().answer(200, kRefreshedBody);
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_TRUE(callbackQueue->runOne());
  ASSERT_EQ(answers.size(), 1);
  EXPECT_EQ(answers[0].error, nullptr);
  const auto token = answers[0].token;
  ASSERT_TRUE(token);
  EXPECT_EQ(token->accessToken(), "refreshed");
  EXPECT_EQ(token->refreshToken(), "rt");
  EXPECT_EQ(token->grantedScopes(), qvr::TextSet{"mail"});
  EXPECT_EQ(token->creationDate(), qvr::Date{clock->now}) << "when the answer was handled";
}

TEST_F(RefreshTaskTest, NothingIsStored) {
  makeTask(dueToken())->resume();
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(keychain->calls(), IsEmpty());
}

TEST_F(RefreshTaskTest, TheOldTokenIsKeptAndTheHandlerReleased) {
  const auto held = std::make_shared<int>(0);
  auto old = makeToken("old", 1234, "kept", 0);
  manager
      ->taskForRefreshingAccessToken(
          old, QVROAuth2ProviderGoogle, kUser,
          [this, held](const qvr::Ref<QVROAuth2Token>& token, const qvr::ErrorPtr& error) {
            answers.push_back({"r", token, error});
          })
      ->resume();
  old = nullptr;
  EXPECT_EQ(held.use_count(), 2);
  session->last().answer(200, R"({"access_token":"new","token_type":"Bearer"})");
  runAll();
  ASSERT_EQ(answers.size(), 1);
  ASSERT_TRUE(answers[0].token);
  EXPECT_EQ(answers[0].token->expiresIn(), 1234);
  EXPECT_EQ(answers[0].token->refreshToken(), "kept");
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(RefreshTaskTest, ErrorsOfTheRequestAreHandedOnUnchanged) {
  makeTask(dueToken())->resume();
  session->last().fail(qvr::NSURLErrorTimedOut);
  makeTask(dueToken())->resume();
  session->last().answer(503, "busy");
  makeTask(dueToken())->resume();
  session->last().answer(400, R"({"error":"invalid_grant","error_description":"revoked"})");
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("r", qvr::NSURLErrorDomain, -1001),
                                   HasError("r", QVROAuth2HTTPErrorDomain, 503),
                                   HasError("r", QVROAuth2ErrorDomain, 9)));
  EXPECT_EQ(*answers[0].error->userInfo(), support::described("made to fail"));
  EXPECT_EQ(*answers[1].error->userInfoValue(QVROAuth2HTTPResponseDataKey),
            qvr::Value(support::bytes("busy")));
  EXPECT_EQ(*answers[2].error->userInfo(), support::described("revoked"));
}

}  // namespace
