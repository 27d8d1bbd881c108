// The revocation task, and how it reads the answer.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/client/TestClients.h"

namespace {

using support::described;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::TestClient;
using testing::IsEmpty;
using State = qvr::URLSessionDataTask::State;

class RevocationTest : public support::LibraryTest {
 protected:
  RevocationTest() { installHost(); }

  qvr::Ref<qvr::URLSessionDataTask> makeTask() {
    return client->taskForRevokingToken(
        "t", nullptr, [this](qvr::ErrorPtr error) { calls.push_back(std::move(error)); });
  }

  // What the handler is called with after an answer.
  qvr::ErrorPtr outcomeOf(std::int64_t status, std::string_view body) {
    calls.clear();
    makeTask()->resume();
    session->last().answer(status, body);
    runAll();
    EXPECT_EQ(calls.size(), 1u);
    return calls.at(0);
  }

  qvr::Ref<TestClient> client = qvr::makeRef<TestClient>();
  std::vector<qvr::ErrorPtr> calls;
};

TEST_F(RevocationTest, TheTaskHasNotStartedAndCarriesTheBuildersRequest) {
  const auto task = client->taskForRevokingToken("t", "access_token", [](auto) {});
  EXPECT_EQ(task->state(), State::kSuspended);
  EXPECT_EQ(session->last().request().url.absoluteString(), "https://login.example/revoke");
  EXPECT_EQ(session->last().request().HTTPMethod, "POST");
  EXPECT_EQ(session->last().body(), "token=t&token_type_hint=access_token");
}

TEST_F(RevocationTest, WithoutAnEndpointItRaisesWithTheMethodsName) {
  for (const qvr::Text& endpoint : {qvr::Text(), qvr::Text(""), qvr::Text("no url")}) {
    client->revoke = endpoint;
    try {
      const auto task = makeTask();
      ADD_FAILURE() << "nothing raised";
    } catch (const qvr::InternalInconsistencyException& exception) {
      EXPECT_EQ(exception.reason(),
                "*** -[QVROAuth2PublicClient "
                "taskForRevokingToken:withTokenTypeHint:completionHandler:]: nil request");
    }
  }
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(RevocationTest, MicrosoftHasNoRevocationEndpointAndRaises) {
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  EXPECT_THROW((void)microsoft->taskForRevokingToken("t", nullptr, [](auto) {}),
               qvr::InternalInconsistencyException);
}

TEST_F(RevocationTest, ATokenWithASpaceAndMoreTextRaisesTheRangeException) {
  EXPECT_THROW((void)client->taskForRevokingToken("a b", nullptr, [](auto) {}),
               qvr::RangeException);
}

TEST_F(RevocationTest, StatusTwoHundredIsSuccessWhateverTheBody) {
  for (const char* body : {"", "{}", "<html>", R"({"error":"invalid_grant"})"})
    EXPECT_FALSE(outcomeOf(200, body)) << body;
}

TEST_F(RevocationTest, AClientErrorStatusGivesTheErrorOfTheBody) {
  for (const std::int64_t status : {400, 403, 499}) {
    EXPECT_THAT(outcomeOf(status, R"({"error":"invalid_request","error_description":"no"})"),
                IsErrorWithUserInfo("QVROAuth2ErrorDomain", 1, described("no")));
  }
  EXPECT_THAT(outcomeOf(400, "{}"), IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
}

TEST_F(RevocationTest, AClientErrorStatusKeepsNullMembersUnlikeTheTokenResponse) {
  EXPECT_THAT(outcomeOf(400, R"({"error":"invalid_client","error_description":null})"),
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 8,
                                  support::entry("NSLocalizedDescription", nullptr)));
}

TEST_F(RevocationTest, AClientErrorStatusWithABodyThatIsNotJSONGivesTheReadersError) {
  const qvr::ErrorPtr error = outcomeOf(404, "<html></html>");
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("NSCocoaErrorDomain", 3840));
}

TEST_F(RevocationTest, NoOtherStatusIsSuccess) {
  for (const std::int64_t status : {100, 201, 202, 206, 301, 302, 399, 501, 599, 600}) {
    EXPECT_THAT(outcomeOf(status, "words"),
                IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", status, described("words")));
  }
}

TEST_F(RevocationTest, NoContentIsAnHTTPErrorWithAnEmptyDescription) {
  EXPECT_THAT(outcomeOf(204, ""),
              IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", 204, described("")));
}

TEST_F(RevocationTest, AServerErrorWithAPlainTextBodyIsDescribedByThatTextAlone) {
  EXPECT_THAT(outcomeOf(500, "try t\xC3\xB4t"),
              IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", 500, described("try t\xC3\xB4t")));
}

TEST_F(RevocationTest, ABodyThatIsNotUTF8GivesTheReasonOfTheStatus) {
  EXPECT_THAT(outcomeOf(503, "\xFF\xFE"), IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", 503,
                                                              described("service unavailable")));
  EXPECT_THAT(outcomeOf(302, "caf\xE9"),
              IsErrorWithUserInfo("QVROAuth2HTTPErrorDomain", 302, described("found")));
}

TEST_F(RevocationTest, ATransportErrorIsHandedOn) {
  makeTask()->resume();
  session->last().fail(-1009);
  runAll();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_THAT(calls[0], IsErrorWithUserInfo("NSURLErrorDomain", -1009, described("made to fail")));
}

TEST_F(RevocationTest, ATransportErrorWithoutAHandlerIsDropped) {
  client->taskForRevokingToken("t", nullptr, nullptr)->resume();
  session->last().fail(-1009);
  EXPECT_NO_THROW(runAll());
}

TEST_F(RevocationTest, TheTaskDoesNotKeepTheClientAlive) {
  const auto destroyed = std::make_shared<bool>(false);
  client->destroyed = destroyed;
  const auto task = makeTask();
  client = nullptr;
  EXPECT_TRUE(*destroyed);
  task->resume();
  session->last().answer(200, "");
  runAll();
  EXPECT_EQ(calls.size(), 1u);
}

TEST_F(RevocationTest, TheHandlerRunsOnTheSessionsCallbackQueue) {
  makeTask()->resume();
  session->last().answer(200, "");
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_TRUE(callbackQueue->runOne());
  EXPECT_EQ(calls.size(), 1u);
}

// Completes its task at once with an error of the test's own.
class FailingSession final : public qvr::URLSession {
 public:
  explicit FailingSession(qvr::ErrorPtr error) : error_(std::move(error)) {}
  qvr::Ref<qvr::URLSessionDataTask> dataTask(qvr::URLRequest,
                                             qvr::DataTaskCompletionHandler handler) override {
    handler(std::nullopt, nullptr, error_);
    return nullptr;
  }

 private:
  const qvr::ErrorPtr error_;
};

class TransportErrorIdentityTest : public support::LibraryTest {};

TEST_F(TransportErrorIdentityTest, AllThreeTasksHandTheSessionsOwnErrorOn) {
  const auto error = qvr::Error::errorWithDomain("NSURLErrorDomain", -1200);
  host.setURLSession(qvr::makeRef<FailingSession>(error));
  installHost();
  const auto client = qvr::makeRef<TestClient>();
  std::vector<qvr::ErrorPtr> seen;
  const auto record = [&seen](auto, const qvr::ErrorPtr& got) { seen.push_back(got); };
  (void)client->taskForRequestingAccessTokenWithAuthorizationCode("c", record);
  (void)client->taskForRefreshingAccessTokenWithRefreshToken("r", record);
  (void)client->taskForRevokingToken("t", nullptr, [&](auto got) { seen.push_back(got); });
  EXPECT_THAT(seen, testing::ElementsAre(error, error, error));
}

}  // namespace
