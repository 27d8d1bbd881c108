// Refreshes and stores that fail: who is told what, and what stays stored.

#include <limits>

#include "tests/manager/ManagerTest.h"

namespace {

using support::HasError;
using support::IsAnswered;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::kCallbackQueue;
using support::kDelegateQueue;
using support::kRefreshedBody;
using testing::ElementsAre;
using testing::IsEmpty;

struct BadAnswer {
  std::int64_t status;
  const char* body;
  std::string_view domain;
  std::int64_t code;
};

constexpr BadAnswer kBadAnswers[] = {
    {400, R"({"error":"invalid_grant"})", QVROAuth2ErrorDomain, 9},
    {401, R"({"error":"invalid_client","error_description":"no"})", QVROAuth2ErrorDomain, 8},
    {200, R"({"error":"server_error","access_token":"at","token_type":"Bearer"})",
     QVROAuth2ErrorDomain, 6},
    {200, "<html>", qvr::NSCocoaErrorDomain, 3840},
    {200, "", qvr::NSCocoaErrorDomain, 3840},
    {200, "{}", QVROAuth2ErrorDomain, 0},
    {404, "{}", QVROAuth2ErrorDomain, 0},
    {200, R"({"access_token":"at"})", QVROAuth2ErrorDomain, 0},
    {200, R"({"token_type":"Bearer"})", QVROAuth2ErrorDomain, 0},
    {201, kRefreshedBody, QVROAuth2HTTPErrorDomain, 201},
    {204, "", QVROAuth2HTTPErrorDomain, 204},
    {302, "", QVROAuth2HTTPErrorDomain, 302},
    {500, "{}", QVROAuth2HTTPErrorDomain, 500},
    {503, "busy", QVROAuth2HTTPErrorDomain, 503},
};

class RequestFailureTest : public support::ManagerTest {
 protected:
  RequestFailureTest() { put(dueToken()); }

  void expectNothingWritten() const {
    EXPECT_EQ(storedAccessToken(), "due");
    EXPECT_EQ(keychain->count("add") + keychain->count("update") + keychain->count("remove"), 0);
  }
};

TEST_F(RequestFailureTest, ABadAnswerReachesTheHandlersAndLeavesTheStoredToken) {
  for (const BadAnswer& c : kBadAnswers) {
    answers.clear();
    startRefresh("first").answer(c.status, c.body);
    request("second");
    EXPECT_TRUE(callbackQueue->runOne());
    EXPECT_THAT(answers, ElementsAre(HasError("first", c.domain, c.code),
                                     HasError("second", c.domain, c.code)))
        << c.status << " " << c.body;
    queues.runAll();  // the second request's read, which starts a refresh for nobody
    session->last().fail(qvr::NSURLErrorTimedOut);
    runAll();
    EXPECT_EQ(answers.size(), 2);
  }
  expectNothingWritten();
}

TEST_F(RequestFailureTest, ATransportErrorReachesTheHandlersUnchanged) {
  for (const std::int64_t code : {-999, -1001, -1003, -1004, -1005, -1009, -1103, -1200, -1202}) {
    answers.clear();
    startRefresh("r").fail(code);
    runAll();
    ASSERT_EQ(answers.size(), 1);
    EXPECT_EQ(answers[0].token, nullptr);
    EXPECT_THAT(answers[0].error, IsErrorWithUserInfo(qvr::NSURLErrorDomain, code,
                                                      support::described("made to fail")));
  }
  expectNothingWritten();
}

TEST_F(RequestFailureTest, NothingIsRetried) {
  startRefresh("r").fail(qvr::NSURLErrorNetworkConnectionLost);
  runAll();
  EXPECT_EQ(session->tasks().size(), 1);
  EXPECT_EQ(keychain->calls().size(), 1);
}

TEST_F(RequestFailureTest, TheNextRequestTriesAgain) {
  startRefresh("first").answer(503, "busy");
  runAll();
  startRefresh("second").answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers,
              ElementsAre(HasError("first", QVROAuth2HTTPErrorDomain, 503), IsAnswered("second")));
  EXPECT_TRUE(answers[1].token);
  EXPECT_EQ(storedAccessToken(), "refreshed");
}

TEST_F(RequestFailureTest, NothingIsLogged) {
  startRefresh("r").answer(503, "busy");
  runAll();
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(RequestFailureTest, ARefreshedTokenThatCannotBeStoredIsNotDelivered) {
  for (const char* operation : {"copyMatching", "update"}) {
    answers.clear();
    keychain->failNothing();
    support::FakeTask& task = startRefresh("first");
    request("second");
    runKeychain();
    keychain->failEvery(operation, qvr::errSecDiskFull);
    task.answer(200, kRefreshedBody);
    runAll();
    EXPECT_THAT(answers, ElementsAre(HasError("first", qvr::NSOSStatusErrorDomain, -34),
                                     HasError("second", qvr::NSOSStatusErrorDomain, -34)))
        << operation;
    EXPECT_EQ(storedAccessToken(), "due");
  }
}

TEST_F(RequestFailureTest, ARefreshedTokenWhoseItemWentMeanwhileIsAdded) {
  support::FakeTask& task = startRefresh("r");
  ASSERT_TRUE(QVROAuth2Keychain::init()->removePasswordDataForService("Google", support::kUser));
  task.answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), 1);
  EXPECT_TRUE(answers[0].token);
  EXPECT_EQ(storedAccessToken(), "refreshed");
}

TEST_F(RequestFailureTest, AfterAFailedStoreTheNextRequestRefreshesAgain) {
  support::FakeTask& task = startRefresh("first");
  keychain->failEvery("update", qvr::errSecDiskFull);
  task.answer(200, kRefreshedBody);
  runAll();
  keychain->failNothing();
  startRefresh("second").answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), 2);
  EXPECT_TRUE(answers[1].token);
}

TEST_F(RequestFailureTest, ARefreshedTokenThatCannotBeArchivedIsNotDelivered) {
  support::FakeTask& task = startRefresh("first");
  request("second");
  runKeychain();
  clock->now = std::numeric_limits<double>::infinity();  // no creation date that can be written
  task.answer(200, kRefreshedBody);
  EXPECT_TRUE(callbackQueue->runOne());
  EXPECT_THAT(answers, ElementsAre(HasError("first", qvr::NSCocoaErrorDomain, 4866),
                                   HasError("second", qvr::NSCocoaErrorDomain, 4866)))
      << "at once, on the session's queue";
  EXPECT_THAT(answers[0].error, IsErrorWithoutUserInfo(qvr::NSCocoaErrorDomain, 4866));
  expectNothingWritten();
}

// Which queue a handler runs on.
using RequestQueuesTest = support::ManagerTest;

TEST_F(RequestQueuesTest, AFreshTokenIsDeliveredOnTheDelegateQueue) {
  put(freshToken());
  request("r");
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kDelegateQueue));
}

TEST_F(RequestQueuesTest, AMissingTokenIsToldOnTheDelegateQueue) {
  request("r");
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kDelegateQueue));
}

TEST_F(RequestQueuesTest, AnUndecodableTokenIsToldOnTheDelegateQueue) {
  keychain->put(support::kGoogleService, support::kUser, support::bytes("no archive"));
  request("r");
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kDelegateQueue));
}

TEST_F(RequestQueuesTest, ARefreshedTokenIsDeliveredOnTheDelegateQueue) {
  put(dueToken());
  startRefresh("first").answer(200, kRefreshedBody);
  request("second");
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kDelegateQueue, kDelegateQueue));
}

TEST_F(RequestQueuesTest, AFailedStoreIsToldOnTheDelegateQueue) {
  put(dueToken());
  startRefresh("r").answer(200, kRefreshedBody);
  keychain->failEvery("update", qvr::errSecDiskFull);
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kDelegateQueue));
}

TEST_F(RequestQueuesTest, AFailedRefreshIsToldOnTheSessionsQueue) {
  put(dueToken());
  startRefresh("first");
  request("second");
  runKeychain();
  session->last().answer(503, "busy");
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kCallbackQueue, kCallbackQueue));
}

TEST_F(RequestQueuesTest, AFailedArchivingIsToldOnTheSessionsQueue) {
  put(dueToken());
  support::FakeTask& task = startRefresh("r");
  clock->now = std::numeric_limits<double>::infinity();
  task.answer(200, kRefreshedBody);
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(kCallbackQueue));
}

}  // namespace
