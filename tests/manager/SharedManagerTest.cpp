// The one instance, which lives for ever.

#include <atomic>
#include <limits>

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/manager/ManagerTest.h"
#include "tests/support/Countdown.h"

namespace {

constexpr std::size_t kAllBits = std::numeric_limits<std::size_t>::max();

class SharedManagerTest : public support::ManagerTest {};

TEST_F(SharedManagerTest, ThereIsOneInstance) {
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(QVROAuth2TokenManager::sharedOAuth2TokenManager(), manager);
}

TEST_F(SharedManagerTest, ADirectAllocationYieldsNull) {
  int zone = 0;
  EXPECT_EQ(QVROAuth2TokenManager::allocWithZone(nullptr), nullptr);
  EXPECT_EQ(QVROAuth2TokenManager::allocWithZone(&zone), nullptr);
}

TEST_F(SharedManagerTest, ItsCountHasAllBitsSet) {
  EXPECT_EQ(manager->retainCount(), kAllBits);
}

TEST_F(SharedManagerTest, RetainAutoreleaseAndCopyAnswerTheReceiverAndCountNothing) {
  EXPECT_EQ(manager->retain(), manager);
  EXPECT_EQ(manager->autorelease(), manager);
  EXPECT_EQ(manager->copyWithZone(nullptr), manager);
  EXPECT_EQ(manager->retainCount(), kAllBits);
}

TEST_F(SharedManagerTest, ReleasingItAnyNumberOfTimesHasNoEffect) {
  for (int i = 0; i < 1000; ++i)
    manager->release();
  for (int i = 0; i < 1000; ++i)
    static_cast<qvr::Object*>(manager)->release();
  EXPECT_EQ(manager->retainCount(), kAllBits);
  put(freshToken());
  request("after");
  runAll();
  EXPECT_THAT(answers, testing::ElementsAre(support::IsAnswered("after")));
}

TEST_F(SharedManagerTest, ACountedPointerToItIsHarmless) {
  {
    const auto adopted = qvr::Ref<QVROAuth2TokenManager>::adopt(manager);
    const qvr::Ref<qvr::Object> copied = adopted;
  }
  EXPECT_EQ(manager->retainCount(), kAllBits);
  EXPECT_EQ(QVROAuth2TokenManager::sharedOAuth2TokenManager(), manager);
}

class SharedManagerFirstUseTest : public support::LibraryTest {};

TEST_F(SharedManagerFirstUseTest, IsOneForAllThreads) {
  installHost();
  std::atomic<QVROAuth2TokenManager*> seen{nullptr};
  std::atomic<int> agreeing{0};
  support::runOnThreads(8, [&](std::size_t) {
    QVROAuth2TokenManager* const mine = QVROAuth2TokenManager::sharedOAuth2TokenManager();
    QVROAuth2TokenManager* first = nullptr;
    const bool isFirst = seen.compare_exchange_strong(first, mine);
    agreeing += isFirst || first == mine ? 1 : 0;
  });
  EXPECT_EQ(agreeing, 8);
}

TEST_F(SharedManagerFirstUseTest, MakesNoQueueAndTouchesNoKeychain) {
  installHost();
  (void)QVROAuth2TokenManager::sharedOAuth2TokenManager();
  EXPECT_THAT(queues.labels(), testing::IsEmpty());
  EXPECT_THAT(keychain->calls(), testing::IsEmpty());
}

TEST_F(SharedManagerFirstUseTest, AHostWithoutAKeychainLearnsItEachTime) {
  host.setKeychainItems(nullptr);
  installHost();
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(QVROAuth2TokenManager::sharedOAuth2TokenManager(),
                 qvr::InternalInconsistencyException);
  }
}

}  // namespace
