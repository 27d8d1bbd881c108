// Whether a token is stored.

#include "tests/manager/ManagerTest.h"

namespace {

using support::kGoogleService;
using support::kUser;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kLogPrefix =
    "-[QVROAuth2TokenManager hasAccessTokenForProvider:username:completionHandler:]"
    "_block_invoke: ";

class HasTokenTest : public support::ManagerTest {
 protected:
  void ask(qvr::TextView provider = QVROAuth2ProviderGoogle, qvr::TextView username = kUser) {
    manager->hasAccessTokenForProvider(provider, username,
                                       [this](bool hasToken) { found.push_back(hasToken); });
  }
  bool hasToken(qvr::TextView provider = QVROAuth2ProviderGoogle, qvr::TextView username = kUser) {
    found.clear();
    ask(provider, username);
    runAll();
    EXPECT_EQ(found.size(), 1);
    return !found.empty() && found.front();
  }

  std::vector<bool> found;
};

TEST_F(HasTokenTest, AStoredTokenAnswersYes) {
  put(freshToken());
  EXPECT_TRUE(hasToken());
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(HasTokenTest, AnExpiredTokenAnswersYesAndIsNotRefreshed) {
  put(dueToken());
  EXPECT_TRUE(hasToken());
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(HasTokenTest, NothingStoredAnswersNoWithoutALogLine) {
  EXPECT_FALSE(hasToken());
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(HasTokenTest, ProviderAndUserNameBothSelectTheItem) {
  put(freshToken());
  EXPECT_FALSE(hasToken(QVROAuth2ProviderMicrosoft));
  EXPECT_FALSE(hasToken(QVROAuth2ProviderGoogle, "other@example.org"));
  EXPECT_TRUE(hasToken());
}

TEST_F(HasTokenTest, AnUnknownProviderIsAskedLikeAnyOther) {
  put(freshToken(), "org.example.mail.Elsewhere.OAuth2Token");
  EXPECT_TRUE(hasToken("Elsewhere"));
}

TEST_F(HasTokenTest, AKeychainErrorAnswersNoAndIsLogged) {
  put(freshToken());
  keychain->failEvery("copyMatching", -25308);
  EXPECT_FALSE(hasToken());
  EXPECT_THAT(*log,
              ElementsAre(std::string(kLogPrefix) +
                          "Error Domain=NSOSStatusErrorDomain Code=-25308 \"User interaction is "
                          "not allowed.\" UserInfo={NSLocalizedDescription=User interaction is "
                          "not allowed.}"));
}

TEST_F(HasTokenTest, AnUndecodableArchiveAnswersNoAndIsLoggedWithoutItsContent) {
  keychain->put(kGoogleService, kUser, support::bytes("s3cret"));
  EXPECT_FALSE(hasToken());
  ASSERT_EQ(log->size(), 1);
  EXPECT_THAT(log->front(),
              StartsWith(std::string(kLogPrefix) + "Error Domain=NSCocoaErrorDomain Code=4864 "));
  EXPECT_THAT(log->front(), Not(HasSubstr("s3cret")));
}

TEST_F(HasTokenTest, TheHandlerRunsOnTheDelegateQueue) {
  put(freshToken());
  ask();
  EXPECT_TRUE(queues.named(support::kWorkQueue)->runOne());
  EXPECT_THAT(found, IsEmpty());
  EXPECT_TRUE(queues.named(support::kDelegateQueue)->runOne());
  EXPECT_THAT(found, ElementsAre(true));
}

TEST_F(HasTokenTest, TheQueryAnswersNoRequest) {
  put(dueToken());
  startRefresh("waiting");
  EXPECT_TRUE(hasToken());
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(session->tasks().size(), 1);
}

TEST_F(HasTokenTest, AHandlerMayAskAgain) {
  put(freshToken());
  manager->hasAccessTokenForProvider(QVROAuth2ProviderGoogle, kUser, [this](bool) { ask(); });
  runAll();
  EXPECT_THAT(found, ElementsAre(true));
}

}  // namespace
