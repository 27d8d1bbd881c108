// The tasks of the code exchange and the refresh, and how they read the answer.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/client/TestClients.h"

namespace {

using support::bytes;
using support::described;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::TestClient;
using support::UserInfo;
using testing::IsEmpty;
using State = qvr::URLSessionDataTask::State;

struct TokenOutcomes {
  struct Call {
    qvr::Ref<QVROAuth2AccessTokenResponse> response;
    qvr::ErrorPtr error;
  };
  QVROAuth2AccessTokenCompletionHandler handler() {
    return [calls = calls](qvr::Ref<QVROAuth2AccessTokenResponse> response, qvr::ErrorPtr error) {
      calls->push_back({std::move(response), std::move(error)});
    };
  }
  std::shared_ptr<std::vector<Call>> calls = std::make_shared<std::vector<Call>>();
};

enum class Exchange { kCode, kRefresh };

// Every test runs for both exchanges: they read their answers alike.
class TokenTasksTest : public support::LibraryTest, public testing::WithParamInterface<Exchange> {
 protected:
  TokenTasksTest() { installHost(); }

  qvr::Ref<qvr::URLSessionDataTask> makeTask(QVROAuth2AccessTokenCompletionHandler handler,
                                             qvr::TextView value = "v") {
    return GetParam() == Exchange::kCode
               ? client->taskForRequestingAccessTokenWithAuthorizationCode(value,
                                                                           std::move(handler))
               : client->taskForRefreshingAccessTokenWithRefreshToken(value, std::move(handler));
  }

  // The one call that an answer leads to.
  TokenOutcomes::Call outcomeOf(std::int64_t status, std::string_view body) {
    TokenOutcomes answered;
    makeTask(answered.handler())->resume();
    session->last().answer(status, body);
    runAll();
    EXPECT_EQ(answered.calls->size(), 1u);
    return answered.calls->at(0);
  }

  qvr::Ref<TestClient> client = qvr::makeRef<TestClient>();
  TokenOutcomes outcomes;
};

INSTANTIATE_TEST_SUITE_P(BothExchanges, TokenTasksTest,
                         testing::Values(Exchange::kCode, Exchange::kRefresh),
                         [](const auto& instance) {
                           return instance.param == Exchange::kCode ? "CodeExchange" : "Refresh";
                         });

TEST_P(TokenTasksTest, TheTaskHasNotStartedWhenItIsReturned) {
  const auto task = makeTask(outcomes.handler());
  runAll();
  EXPECT_EQ(task->state(), State::kSuspended);
  EXPECT_THAT(*outcomes.calls, IsEmpty());
}

TEST_P(TokenTasksTest, TheTaskCarriesTheBuildersRequest) {
  const auto task = makeTask(outcomes.handler());
  const auto expected = GetParam() == Exchange::kCode
                            ? client->accessTokenRequestWithAuthorizationCode("v")
                            : client->refreshAccessTokenRequestWithRefreshToken("v");
  ASSERT_EQ(session->tasks().size(), 1u);
  EXPECT_EQ(session->last().request().url, expected->url);
  EXPECT_EQ(session->last().request().HTTPMethod, "POST");
  EXPECT_EQ(session->last().request().headers, expected->headers);
  EXPECT_EQ(session->last().request().HTTPBody, expected->HTTPBody);
}

TEST_P(TokenTasksTest, WithoutAnEndpointItRaisesWithTheMethodsNameAndMakesNoTask) {
  const std::string method =
      GetParam() == Exchange::kCode
          ? "taskForRequestingAccessTokenWithAuthorizationCode:completionHandler:"
          : "taskForRefreshingAccessTokenWithRefreshToken:completionHandler:";
  for (const qvr::Text& endpoint : {qvr::Text(), qvr::Text(""), qvr::Text("no url")}) {
    client->token = endpoint;
    try {
      const auto task = makeTask(outcomes.handler());
      ADD_FAILURE() << "nothing raised";
    } catch (const qvr::InternalInconsistencyException& exception) {
      EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
      EXPECT_EQ(exception.reason(), "*** -[QVROAuth2PublicClient " + method + "]: nil request");
    }
  }
  EXPECT_THAT(session->tasks(), IsEmpty());
  EXPECT_THAT(*outcomes.calls, IsEmpty());
}

TEST_P(TokenTasksTest, AValueWithASpaceAndMoreTextRaisesTheRangeException) {
  EXPECT_THROW((void)makeTask(outcomes.handler(), "a b"), qvr::RangeException);
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_P(TokenTasksTest, StatusTwoHundredGivesTheResponse) {
  const auto outcome = outcomeOf(200, R"({"access_token":"at","token_type":"Bearer"})");
  ASSERT_TRUE(outcome.response);
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(outcome.response->accessToken().text(), "at");
  EXPECT_EQ(outcome.response->tokenType().text(), "Bearer");
}

TEST_P(TokenTasksTest, AClientErrorStatusWithAnOAuthBodyGivesTheProtocolError) {
  for (const std::int64_t status : {400, 401, 403, 429, 499}) {
    const auto outcome =
        outcomeOf(status, R"({"error":"invalid_grant","error_description":"gone"})");
    EXPECT_FALSE(outcome.response);
    EXPECT_THAT(outcome.error, IsErrorWithUserInfo("QVROAuth2ErrorDomain", 9, described("gone")))
        << status;
  }
}

TEST_P(TokenTasksTest, StatusTwoHundredWithAnErrorMemberIsAProtocolErrorToo) {
  const auto outcome = outcomeOf(200, R"({"access_token":"at","error":"server_error"})");
  EXPECT_FALSE(outcome.response);
  EXPECT_THAT(outcome.error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 6));
}

TEST_P(TokenTasksTest, AClientErrorStatusWithoutAnErrorMemberIsASuccess) {
  const auto outcome = outcomeOf(404, R"({"access_token":"at"})");
  ASSERT_TRUE(outcome.response);
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(outcome.response->accessToken().text(), "at");
}

TEST_P(TokenTasksTest, ABodyThatIsNotJSONGivesTheReadersError) {
  for (const std::int64_t status : {200, 400, 499}) {
    for (const char* body : {"<html></html>", "", "{\"access_token\":\"a"}) {
      const auto outcome = outcomeOf(status, body);
      EXPECT_FALSE(outcome.response);
      ASSERT_TRUE(outcome.error);
      EXPECT_TRUE(outcome.error->is("NSCocoaErrorDomain", 3840)) << outcome.error->description();
    }
  }
}

TEST_P(TokenTasksTest, EveryOtherStatusIsAnHTTPErrorWithItsReasonAndTheBody) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {100, "continue"},
      {199, "informational"},
      {201, "created"},
      {204, "no content"},
      {206, "partial content"},
      {299, "success"},
      {301, "moved permanently"},
      {302, "found"},
      {304, "not modified"},
      {399, "redirected"},
      {500, "internal server error"},
      {503, "service unavailable"},
      {599, "server error"},
      {600, "server error"},
  };
  for (const auto& [status, reason] : cases) {
    const UserInfo expected = {{"NSLocalizedDescription", reason},
                               {"QVROAuth2HTTPResponseData", bytes("the body")}};
    const auto outcome = outcomeOf(status, "the body");
    EXPECT_FALSE(outcome.response);
    EXPECT_THAT(outcome.error, IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", status, expected));
  }
}

TEST_P(TokenTasksTest, CreatedAndNoContentAreNotParsed) {
  for (const std::int64_t status : {201, 204}) {
    const auto outcome = outcomeOf(status, R"({"access_token":"at","token_type":"Bearer"})");
    EXPECT_FALSE(outcome.response);
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->is("QVROAuth2HTTPErrorDomain", status));
  }
}

TEST_P(TokenTasksTest, AnHTTPErrorWithoutABodyHasEmptyPresentData) {
  const UserInfo expected = {{"NSLocalizedDescription", "bad gateway"},
                             {"QVROAuth2HTTPResponseData", qvr::Data()}};
  EXPECT_THAT(outcomeOf(502, "").error,
              IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", 502, expected));
}

TEST_P(TokenTasksTest, AnHTTPErrorKeepsBytesThatAreNoText) {
  const UserInfo expected = {{"NSLocalizedDescription", "bad gateway"},
                             {"QVROAuth2HTTPResponseData", qvr::Data{0xFF, 0x00}}};
  EXPECT_THAT(outcomeOf(502, std::string_view("\xFF\0", 2)).error,
              IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", 502, expected));
}

TEST_P(TokenTasksTest, ThePrintedHTTPErrorHoldsNoByteOfTheBody) {
  EXPECT_EQ(outcomeOf(500, "secret").error->description(),
            "Error Domain=QVROAuth2HTTPErrorDomain Code=500 \"internal server error\" UserInfo="
            "{NSLocalizedDescription=internal server error, "
            "QVROAuth2HTTPResponseData={length = 6}}");
}

TEST_P(TokenTasksTest, ATransportErrorIsHandedOn) {
  makeTask(outcomes.handler())->resume();
  session->last().fail(-1005);
  runAll();
  ASSERT_EQ(outcomes.calls->size(), 1u);
  EXPECT_FALSE(outcomes.calls->at(0).response);
  EXPECT_THAT(outcomes.calls->at(0).error,
              IsErrorWithUserInfo("NSURLErrorDomain", -1005, described("made to fail")));
}

TEST_P(TokenTasksTest, CancellingGivesTheSessionsCancellationError) {
  const auto task = makeTask(outcomes.handler());
  task->resume();
  task->cancel();
  EXPECT_THAT(*outcomes.calls, IsEmpty()) << "never inside cancel()";
  runAll();
  ASSERT_EQ(outcomes.calls->size(), 1u);
  EXPECT_TRUE(outcomes.calls->at(0).error->is("NSURLErrorDomain", -999));
}

TEST_P(TokenTasksTest, TheHandlerRunsOnTheSessionsCallbackQueueWithoutAHop) {
  makeTask(outcomes.handler())->resume();
  session->last().answer(200, "{}");
  EXPECT_THAT(*outcomes.calls, IsEmpty());
  EXPECT_TRUE(callbackQueue->runOne());
  EXPECT_EQ(outcomes.calls->size(), 1u);
  EXPECT_THAT(queues.labels(), IsEmpty());
}

TEST_P(TokenTasksTest, ATransportErrorWithoutAHandlerIsDropped) {
  makeTask(nullptr)->resume();
  session->last().fail(-1001);
  EXPECT_NO_THROW(runAll());
}

TEST_P(TokenTasksTest, AnAnswerNeedsAHandler) {
  for (const std::int64_t status : {200, 500}) {
    makeTask(nullptr)->resume();
    session->last().answer(status, "{}");
    EXPECT_THROW(runAll(), std::bad_function_call);
  }
}

TEST_P(TokenTasksTest, ATaskThatIsNeverResumedNeverCallsItsHandler) {
  auto task = makeTask(outcomes.handler());
  task->cancel();
  task = nullptr;
  runAll();
  EXPECT_THAT(*outcomes.calls, IsEmpty());
}

TEST_P(TokenTasksTest, TheTaskDoesNotKeepTheClientAlive) {
  const auto destroyed = std::make_shared<bool>(false);
  client->destroyed = destroyed;
  const auto task = makeTask(outcomes.handler());
  client = nullptr;
  EXPECT_TRUE(*destroyed);
  task->resume();
  session->last().answer(200, R"({"access_token":"at"})");
  runAll();
  ASSERT_EQ(outcomes.calls->size(), 1u);
  EXPECT_TRUE(outcomes.calls->at(0).response);
}

TEST_P(TokenTasksTest, TheHandlerIsHeldByTheTaskAndReleasedWithItsCall) {
  const auto owned = std::make_shared<int>(0);
  const auto task = makeTask([owned](auto, auto) { ++*owned; });
  EXPECT_EQ(owned.use_count(), 2);
  task->resume();
  session->last().answer(200, "{}");
  runAll();
  EXPECT_EQ(*owned, 1);
  EXPECT_EQ(owned.use_count(), 1);
}

TEST_P(TokenTasksTest, TheClientIsReadWhenTheTaskIsMade) {
  client->setCodeVerifier("before");
  const auto task = makeTask(outcomes.handler());
  client->setCodeVerifier("after");
  task->resume();
  EXPECT_EQ(session->last().body().find("after"), std::string::npos);
}

}  // namespace
