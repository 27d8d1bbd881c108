// Cancelling the refresh that is running for a user name.

#include "tests/manager/ManagerTest.h"

namespace {

using support::HasError;
using support::IsAnswered;
using support::kRefreshedBody;
using support::kUser;
using testing::ElementsAre;
using testing::IsEmpty;

class CancelTest : public support::ManagerTest {
 protected:
  void cancel(qvr::TextView provider = QVROAuth2ProviderGoogle, qvr::TextView username = kUser) {
    manager->cancelRequestForProvider(provider, username);
  }
};

TEST_F(CancelTest, WithNothingRunningItDoesNothing) {
  cancel();
  runAll();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_THAT(session->tasks(), IsEmpty());
  EXPECT_THAT(keychain->calls(), IsEmpty());
}

TEST_F(CancelTest, ARequestThatWaitsForTheKeychainCompletesNormally) {
  put(freshToken());
  request("r");
  cancel();
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("r")));
  EXPECT_TRUE(answers[0].token);
}

TEST_F(CancelTest, ARequestThatWaitsForTheKeychainMayStillStartARefresh) {
  put(dueToken());
  request("r");
  cancel();
  runKeychain();
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("r")));
  EXPECT_TRUE(answers[0].token);
}

TEST_F(CancelTest, AllWhoWaitGetTheCancellationError) {
  put(dueToken());
  startRefresh("first");
  request("second");
  runKeychain();
  cancel();
  EXPECT_THAT(answers, IsEmpty()) << "the handlers run later, on the session's queue";
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("first", "NSURLErrorDomain", -999),
                                   HasError("second", "NSURLErrorDomain", -999)));
  EXPECT_EQ(storedAccessToken(), "due");
}

TEST_F(CancelTest, RemovesNoHandlerAndNoTask) {
  put(dueToken());
  startRefresh("first");
  cancel();
  request("second");
  runKeychain();
  EXPECT_EQ(session->tasks().size(), 1) << "the cancelled task still stands for a refresh";
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("first"), IsAnswered("second")));
}

TEST_F(CancelTest, CancellingAgainChangesNothing) {
  put(dueToken());
  startRefresh("r");
  cancel();
  cancel();
  runAll();
  cancel();
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("r", "NSURLErrorDomain", -999)));
}

TEST_F(CancelTest, TheNextRequestStartsAnotherRefresh) {
  put(dueToken());
  startRefresh("first");
  cancel();
  runAll();
  startRefresh("second");
  ASSERT_EQ(session->tasks().size(), 2);
  session->last().answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), 2);
  EXPECT_TRUE(answers[1].token);
}

TEST_F(CancelTest, TheProviderPlaysNoPart) {
  put(dueToken());
  startRefresh("r");
  cancel(QVROAuth2ProviderMicrosoft);
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("r", "NSURLErrorDomain", -999)));
}

TEST_F(CancelTest, AnotherUserNameIsNotTouched) {
  put(dueToken());
  support::FakeTask& task = startRefresh("r");
  cancel(QVROAuth2ProviderGoogle, "other@example.org");
  runAll();
  EXPECT_EQ(task.state(), qvr::URLSessionDataTask::State::kRunning);
  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(CancelTest, ARefreshThatHasEndedIsStoredAndDelivered) {
  put(dueToken());
  startRefresh("r").answer(200, kRefreshedBody);
  EXPECT_TRUE(callbackQueue->runOne());
  cancel();  // the token is on its way into the keychain
  runAll();
  ASSERT_EQ(answers.size(), 1);
  EXPECT_TRUE(answers[0].token);
  EXPECT_EQ(storedAccessToken(), "refreshed");
}

}  // namespace
