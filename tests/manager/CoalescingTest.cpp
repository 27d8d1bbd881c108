// Requests for one user name that meet: one refresh, and handlers answered together.

#include "tests/manager/ManagerTest.h"

namespace {

using support::HasError;
using support::HasToken;
using support::IsAnswered;
using support::kGoogleService;
using support::kMicrosoftService;
using support::kRefreshedBody;
using support::kUser;
using testing::ElementsAre;
using testing::IsEmpty;

class CoalescingTest : public support::ManagerTest {};

TEST_F(CoalescingTest, TwoRequestsForADueTokenStartOneRefreshAndShareItsToken) {
  put(dueToken());
  request("first");
  request("second");
  runKeychain();
  ASSERT_EQ(session->tasks().size(), 1);
  session->last().answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), 2);
  const auto token = answers[0].token;
  EXPECT_THAT(answers, ElementsAre(HasToken("first", token), HasToken("second", token)));
}

TEST_F(CoalescingTest, HandlersAreAnsweredOldestFirst) {
  put(dueToken());
  std::vector<std::string> names;
  for (int i = 0; i < 20; ++i) {
    names.push_back(std::to_string(i));
    request(names.back());
    if (i % 3 == 0) runKeychain();
  }
  runKeychain();
  ASSERT_EQ(session->tasks().size(), 1);
  session->last().answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_THAT(answers[i], IsAnswered(names[i]));
}

TEST_F(CoalescingTest, TheFirstReadThatEndsAnswersAllWhoWait) {
  put(freshToken());
  for (const char* name : {"a", "b", "c"})
    request(name);
  EXPECT_TRUE(queues.named(support::kWorkQueue)->runOne());
  EXPECT_TRUE(queues.named(support::kDelegateQueue)->runOne());
  ASSERT_EQ(answers.size(), 3);
  const auto token = answers[0].token;
  EXPECT_THAT(answers,
              ElementsAre(HasToken("a", token), HasToken("b", token), HasToken("c", token)));
  runAll();
  EXPECT_EQ(answers.size(), 3) << "the other two reads find nobody to answer";
}

TEST_F(CoalescingTest, AFailedReadAnswersAllWhoWait) {
  request("a");
  request("b");
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("a", qvr::NSOSStatusErrorDomain, -25300),
                                   HasError("b", qvr::NSOSStatusErrorDomain, -25300)));
  EXPECT_EQ(answers[0].error, answers[1].error) << "one error for both";
}

TEST_F(CoalescingTest, ARequestDuringARefreshJoinsIt) {
  put(dueToken());
  support::FakeTask& task = startRefresh("first");
  request("second");
  runKeychain();
  EXPECT_EQ(session->tasks().size(), 1);
  EXPECT_THAT(answers, IsEmpty());
  task.answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("first"), IsAnswered("second")));
  EXPECT_EQ(answers[0].token, answers[1].token);
}

TEST_F(CoalescingTest, ARequestWhileTheTokenIsStoredIsAnsweredWithItOnce) {
  put(dueToken());
  startRefresh("first").answer(200, kRefreshedBody);
  EXPECT_TRUE(callbackQueue->runOne());  // hands the token to the keychain
  request("second");
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("first"), IsAnswered("second")));
  ASSERT_TRUE(answers[0].token);
  EXPECT_EQ(answers[0].token, answers[1].token);
  EXPECT_EQ(session->tasks().size(), 1);
}

TEST_F(CoalescingTest, AFailedRefreshAnswersAllWhoWaitOldestFirst) {
  put(dueToken());
  support::FakeTask& task = startRefresh("first");
  request("second");
  task.fail(qvr::NSURLErrorTimedOut);
  EXPECT_TRUE(callbackQueue->runOne());
  EXPECT_THAT(answers, ElementsAre(HasError("first", qvr::NSURLErrorDomain, -1001),
                                   HasError("second", qvr::NSURLErrorDomain, -1001)));
  EXPECT_EQ(answers[0].error, answers[1].error) << "one error for both";
}

TEST_F(CoalescingTest, UserNamesDoNotShare) {
  put(dueToken(), kGoogleService, "a@example.org");
  put(dueToken(), kGoogleService, "A@example.org");
  request("a", QVROAuth2ProviderGoogle, "a@example.org");
  request("A", QVROAuth2ProviderGoogle, "A@example.org");
  runKeychain();
  ASSERT_EQ(session->tasks().size(), 2);
  session->tasks()[1]->answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("A")));
  session->tasks()[0]->fail(qvr::NSURLErrorTimedOut);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("A"), HasError("a", qvr::NSURLErrorDomain, -1001)));
}

TEST_F(CoalescingTest, OneUserNameUnderBothProvidersSharesTheRefresh) {
  put(dueToken(), kGoogleService);
  put(dueToken(), kMicrosoftService);
  startRefresh("Google");
  request("Microsoft", QVROAuth2ProviderMicrosoft);
  runKeychain();
  ASSERT_EQ(session->tasks().size(), 1);
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("Google"), IsAnswered("Microsoft")));
  EXPECT_EQ(answers[0].token, answers[1].token);
  EXPECT_EQ(stored(kGoogleService)->accessToken(), "refreshed");
  EXPECT_EQ(stored(kMicrosoftService)->accessToken(), "due") << "the token is Google's";
}

TEST_F(CoalescingTest, OneUserNameUnderBothProvidersSharesAFailure) {
  put(dueToken(), kGoogleService);
  startRefresh("Google");
  request("Microsoft", QVROAuth2ProviderMicrosoft);
  runKeychain();
  EXPECT_THAT(answers, ElementsAre(HasError("Google", qvr::NSOSStatusErrorDomain, -25300),
                                   HasError("Microsoft", qvr::NSOSStatusErrorDomain, -25300)));
}

TEST_F(CoalescingTest, AReadThatFailsDuringARefreshAnswersEveryoneAndClearsTheTask) {
  put(dueToken());
  startRefresh("waiting");
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  request("late");
  runKeychain();
  EXPECT_THAT(answers, ElementsAre(HasError("waiting", qvr::NSOSStatusErrorDomain, -25308),
                                   HasError("late", qvr::NSOSStatusErrorDomain, -25308)));
  keychain->failNothing();
  startRefresh("next");
  EXPECT_EQ(session->tasks().size(), 2);
}

// What the keychain holds is looked at anew for every request, whatever is being refreshed.

TEST_F(CoalescingTest, AnotherRecordThatIsDueJoinsTheRunningRefresh) {
  put(dueToken("first"));
  startRefresh("waiting");
  put(dueToken("second"));
  request("late");
  runKeychain();
  EXPECT_EQ(session->tasks().size(), 1);
  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(CoalescingTest, ARecordThatIsNoLongerDueAnswersEveryone) {
  put(dueToken());
  startRefresh("waiting");
  clock->now -= 3600;  // the clock was wrong, and has been set
  request("late");
  runKeychain();
  ASSERT_EQ(answers.size(), 2);
  const auto token = answers[0].token;
  EXPECT_THAT(answers, ElementsAre(HasToken("waiting", token), HasToken("late", token)));
  EXPECT_EQ(token->accessToken(), "due");
}

TEST_F(CoalescingTest, AnArchiveThatIsDamagedDuringARefreshAnswersEveryoneWithItsError) {
  put(dueToken());
  startRefresh("waiting");
  keychain->put(kGoogleService, kUser, support::bytes("damaged"));
  request("late");
  runKeychain();
  EXPECT_THAT(answers, ElementsAre(HasError("waiting", qvr::NSCocoaErrorDomain, 4864),
                                   HasError("late", qvr::NSCocoaErrorDomain, 4864)));
}

// A fresh token that appears, say by a new sign-in, while a refresh is running.
class FreshTokenDuringRefreshTest : public CoalescingTest {
 protected:
  FreshTokenDuringRefreshTest() {
    put(dueToken());
    startRefresh("waiting");
    put(freshToken());
    request("late");
    runKeychain();
  }
};

TEST_F(FreshTokenDuringRefreshTest, AnswersEveryoneAtOnce) {
  ASSERT_EQ(answers.size(), 2);
  const auto token = answers[0].token;
  EXPECT_THAT(answers, ElementsAre(HasToken("waiting", token), HasToken("late", token)));
  EXPECT_EQ(token->accessToken(), "fresh");
}

TEST_F(FreshTokenDuringRefreshTest, TheRefreshStillStoresItsTokenButCallsNobody) {
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_EQ(answers.size(), 2);
  EXPECT_EQ(storedAccessToken(), "refreshed");
}

TEST_F(FreshTokenDuringRefreshTest, ARefreshThatFailsCallsNobody) {
  session->last().fail(qvr::NSURLErrorTimedOut);
  runAll();
  EXPECT_EQ(answers.size(), 2);
  EXPECT_EQ(storedAccessToken(), "fresh");
}

TEST_F(FreshTokenDuringRefreshTest, ClearsTheTaskSoThatTheNextDueRequestStartsAnother) {
  manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, kUser);
  EXPECT_EQ(session->last().state(), qvr::URLSessionDataTask::State::kRunning)
      << "a refresh without an entry is beyond cancelling";
  put(dueToken());
  startRefresh("next");
  EXPECT_EQ(session->tasks().size(), 2);
}

TEST_F(FreshTokenDuringRefreshTest, TheOldRefreshAnswersThoseWhoWaitForTheNextOne) {
  put(dueToken());
  startRefresh("next");
  session->tasks()[0]->answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), 3);
  EXPECT_THAT(answers[2], IsAnswered("next"));
  session->tasks()[1]->answer(200, R"({"access_token":"last","token_type":"Bearer"})");
  runAll();
  EXPECT_EQ(answers.size(), 3);
  EXPECT_EQ(storedAccessToken(), "last");
}

}  // namespace
