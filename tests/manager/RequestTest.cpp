// One request at a time: what is answered, and what is asked of keychain and network for it.

#include "tests/manager/ManagerTest.h"

namespace {

using support::archiveOf;
using support::HasError;
using support::kGoogleService;
using support::kMicrosoftService;
using support::kRefreshedBody;
using support::kUser;
using testing::ElementsAre;
using testing::IsEmpty;

class RequestTest : public support::ManagerTest {
 protected:
  std::vector<std::string> keychainOperations() const {
    std::vector<std::string> operations;
    for (const auto& call : keychain->calls())
      operations.push_back(call.operation);
    return operations;
  }

  const qvr::Ref<QVROAuth2Token>& onlyToken() const {
    EXPECT_EQ(answers.size(), 1);
    EXPECT_EQ(answers.front().error, nullptr);
    return answers.front().token;
  }
};

TEST_F(RequestTest, AFreshTokenIsAnsweredFromTheKeychain) {
  put(freshToken());
  request("r");
  runAll();
  ASSERT_TRUE(onlyToken());
  EXPECT_EQ(onlyToken()->accessToken(), "fresh");
  EXPECT_THAT(keychainOperations(), ElementsAre("copyMatching"));
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(RequestTest, NothingHappensOnTheCallersThread) {
  put(freshToken());
  request("r");
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_THAT(keychain->calls(), IsEmpty());
}

TEST_F(RequestTest, TheItemIsNamedByProviderAndUserName) {
  put(freshToken("of Google"), kGoogleService);
  put(freshToken("of Microsoft"), kMicrosoftService);
  put(freshToken("of another"), kGoogleService, "other@example.org");
  request("Google");
  runAll();
  request("Microsoft", QVROAuth2ProviderMicrosoft);
  runAll();
  request("another", QVROAuth2ProviderGoogle, "other@example.org");
  runAll();
  ASSERT_EQ(answers.size(), 3);
  for (const support::Answer& answer : answers) {
    ASSERT_TRUE(answer.token);
    EXPECT_EQ(answer.token->accessToken(), "of " + answer.name);
  }
}

TEST_F(RequestTest, NothingStoredIsAnsweredWithNotFound) {
  request("r");
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("r", qvr::NSOSStatusErrorDomain, -25300)));
  EXPECT_THAT(session->tasks(), IsEmpty()) << "nobody is signed in";
}

TEST_F(RequestTest, AnUnreadableItemIsAnsweredWithTheKeychainsError) {
  put(freshToken());
  keychain->failEvery("copyMatching", -25308);
  request("r");
  runAll();
  ASSERT_EQ(answers.size(), 1);
  EXPECT_EQ(answers[0].token, nullptr);
  EXPECT_THAT(answers[0].error,
              support::IsErrorWithUserInfo(qvr::NSOSStatusErrorDomain, -25308,
                                           support::described("User interaction is not allowed.")));
  EXPECT_THAT(*log, IsEmpty()) << "a request that fails logs nothing";
}

TEST_F(RequestTest, AnUndecodableArchiveIsAnsweredWithItsErrorAndStays) {
  keychain->put(kGoogleService, kUser, support::bytes("no archive"));
  request("r");
  runAll();
  EXPECT_THAT(answers, ElementsAre(HasError("r", qvr::NSCocoaErrorDomain, 4864)));
  EXPECT_EQ(keychain->stored(kGoogleService, kUser), support::bytes("no archive"));
}

TEST_F(RequestTest, ADueTokenIsRefreshedStoredAndThenDelivered) {
  put(dueToken());
  support::FakeTask& task = startRefresh("r");
  EXPECT_EQ(task.state(), qvr::URLSessionDataTask::State::kRunning) << "it was resumed";
  EXPECT_THAT(answers, IsEmpty());
  task.answer(200, kRefreshedBody);
  runAll();
  ASSERT_TRUE(onlyToken());
  EXPECT_EQ(onlyToken()->accessToken(), "refreshed");
  EXPECT_EQ(onlyToken()->creationDate(), qvr::Date{clock->now});
  EXPECT_EQ(keychain->stored(kGoogleService, kUser), archiveOf(onlyToken()));
  EXPECT_THAT(keychainOperations(), ElementsAre("copyMatching", "copyMatching", "update"));
}

TEST_F(RequestTest, ARefreshedTokenIsInTheKeychainWhenItIsDelivered) {
  put(dueToken());
  std::string storedAtDelivery;
  manager->requestAccessTokenForProvider(
      QVROAuth2ProviderGoogle, kUser, [&](const qvr::Ref<QVROAuth2Token>&, const qvr::ErrorPtr&) {
        storedAtDelivery = storedAccessToken();
      });
  runKeychain();
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_EQ(storedAtDelivery, "refreshed");
}

TEST_F(RequestTest, TheRefreshIsSentToTheProviderWithTheStoredRefreshToken) {
  put(dueToken(), kGoogleService);
  put(dueToken(), kMicrosoftService, "other@example.org");
  startRefresh("Google");
  request("Microsoft", QVROAuth2ProviderMicrosoft, "other@example.org");
  runKeychain();
  ASSERT_EQ(session->tasks().size(), 2);
  EXPECT_EQ(session->tasks()[0]->request().url.absoluteString(),
            "https://oauth2.googleapis.com/token");
  EXPECT_EQ(session->tasks()[1]->request().url.absoluteString(),
            "https://login.microsoftonline.com/common/oauth2/v2.0/token");
  for (const auto& task : session->tasks())
    EXPECT_THAT(task->body(), testing::HasSubstr("&refresh_token=rt&grant_type=refresh_token"));
}

TEST_F(RequestTest, ATokenIsRefreshedFromOneMinuteBeforeItsExpiryOn) {
  put(support::makeToken("at", 3600, "rt", clock->now - 3539));
  request("a second too early");
  runAll();
  EXPECT_EQ(answers.size(), 1);
  EXPECT_THAT(session->tasks(), IsEmpty());
  clock->now += 1;
  startRefresh("due");
  EXPECT_EQ(session->tasks().size(), 1);
}

TEST_F(RequestTest, ATokenWithoutARefreshTokenIsAnsweredHoweverOld) {
  put(support::makeToken("old", 0, nullptr, 0));
  request("r");
  runAll();
  ASSERT_TRUE(onlyToken());
  EXPECT_EQ(onlyToken()->accessToken(), "old");
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(RequestTest, AnUnknownProviderWithAFreshTokenIsAnsweredNormally) {
  put(freshToken(), "org.example.mail.Elsewhere.OAuth2Token");
  request("r", "Elsewhere");
  runAll();
  ASSERT_TRUE(onlyToken());
  EXPECT_EQ(onlyToken()->accessToken(), "fresh");
}

TEST_F(RequestTest, EveryRequestReadsTheKeychain) {
  put(freshToken());
  for (const char* name : {"a", "b", "c"})
    request(name);
  runAll();
  EXPECT_THAT(keychainOperations(), ElementsAre("copyMatching", "copyMatching", "copyMatching"));
  EXPECT_EQ(answers.size(), 3);
}

TEST_F(RequestTest, ARequestAfterARefreshIsAnsweredFromTheKeychain) {
  put(dueToken());
  startRefresh("first").answer(200, kRefreshedBody);
  runAll();
  request("second");
  runAll();
  ASSERT_EQ(answers.size(), 2);
  ASSERT_TRUE(answers[1].token);
  EXPECT_EQ(answers[1].token->accessToken(), "refreshed");
  EXPECT_EQ(session->tasks().size(), 1);
}

TEST_F(RequestTest, TheHandlerIsReleasedAfterItsCall) {
  put(dueToken());
  const auto held = std::make_shared<int>(0);
  manager->requestAccessTokenForProvider(
      QVROAuth2ProviderGoogle, kUser,
      [held](const qvr::Ref<QVROAuth2Token>&, const qvr::ErrorPtr&) {});
  runKeychain();
  EXPECT_EQ(held.use_count(), 2);
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
