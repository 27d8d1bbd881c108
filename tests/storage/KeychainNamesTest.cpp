// Service names, queue labels, queries, and what there is one of per process.

#include <atomic>

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/storage/KeychainPrimitives.h"
#include "tests/storage/KeychainTest.h"
#include "tests/support/Countdown.h"

namespace {

using Primitives = QVROAuth2KeychainPrimitives;
using support::itemQuery;
using support::with;
using testing::ElementsAre;
using testing::IsEmpty;

class KeychainNamesTest : public support::KeychainTest {};

TEST_F(KeychainNamesTest, ServiceNameIsBundleIdentifierServiceAndLiteral) {
  installHost();
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService("Google"),
            "org.example.mail.Google.OAuth2Token");
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService("Microsoft"),
            "org.example.mail.Microsoft.OAuth2Token");
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService(""), "org.example.mail..OAuth2Token");
}

TEST_F(KeychainNamesTest, WithoutABundleIdentifierTheServiceNameHasTwoParts) {
  host.setBundleIdentifier(nullptr);
  installHost();
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService("Google"), "Google.OAuth2Token");
}

TEST_F(KeychainNamesTest, AnEmptyBundleIdentifierIsAPartLikeAnyOther) {
  host.setBundleIdentifier("");
  installHost();
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService("Google"), ".Google.OAuth2Token");
}

TEST_F(KeychainNamesTest, ServiceNameIsDerivedAnewOnEveryCall) {
  installHost();
  (void)QVROAuth2Keychain::serviceNameForService("Google");
  const qvr::ScopedWorld another;
  QVROAuth2Host().install();
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService("Google"), "Google.OAuth2Token");
}

TEST_F(KeychainNamesTest, AnAbsentServiceRaises) {
  installHost();
  EXPECT_THROW(QVROAuth2Keychain::serviceNameForService(nullptr), qvr::InvalidArgumentException);
}

TEST_F(KeychainNamesTest, QueueLabelsAreBundleIdentifierClassAndName) {
  installHost();
  EXPECT_EQ(QVROAuth2Keychain::queue()->label(), "org.example.mail.QVROAuth2Keychain.queue");
  EXPECT_EQ(QVROAuth2Keychain::init()->delegateQueue()->label(),
            "org.example.mail.QVROAuth2Keychain.delegateQueue");
}

TEST_F(KeychainNamesTest, WithoutABundleIdentifierQueueLabelsHaveTwoParts) {
  host.setBundleIdentifier(nullptr);
  installHost();
  EXPECT_EQ(QVROAuth2Keychain::queue()->label(), "QVROAuth2Keychain.queue");
  EXPECT_EQ(QVROAuth2Keychain::init()->delegateQueue()->label(), "QVROAuth2Keychain.delegateQueue");
}

TEST_F(KeychainNamesTest, QueryHasExactlyThreeEntries) {
  EXPECT_EQ(Primitives::query("derived name", "account as given "),
            (qvr::KeychainQuery{
                {"class", "genp"}, {"svce", "derived name"}, {"acct", "account as given "}}));
}

TEST_F(KeychainNamesTest, QueryTakesFurtherEntries) {
  const qvr::KeychainQuery further = {{"r_Data", true}, {"other", 5}};
  EXPECT_EQ(Primitives::query("s", "a", &further),
            with(with(itemQuery("s", "a"), "r_Data", true), "other", 5));
  const qvr::KeychainQuery none;
  EXPECT_EQ(Primitives::query("s", "a", &none), itemQuery("s", "a"));
}

TEST_F(KeychainNamesTest, AFurtherEntryReplacesOneWithTheSameKey) {
  const qvr::KeychainQuery further = {{"acct", "replaced"}};
  EXPECT_EQ(Primitives::query("s", "a", &further), itemQuery("s", "replaced"));
}

TEST_F(KeychainNamesTest, QueryForAnAbsentServiceOrAccountRaises) {
  EXPECT_THROW(Primitives::query(nullptr, "a"), qvr::InvalidArgumentException);
  EXPECT_THROW(Primitives::query("s", nullptr), qvr::InvalidArgumentException);
}

class KeychainOnceTest : public support::KeychainTest {
 protected:
  KeychainOnceTest() { installHost(); }
};

TEST_F(KeychainOnceTest, TheDefaultKeychainIsOneInstance) {
  const qvr::Ref<QVROAuth2Keychain> keychain1 = QVROAuth2Keychain::defaultOAuth2Keychain();
  EXPECT_EQ(keychain1, QVROAuth2Keychain::defaultOAuth2Keychain());
  EXPECT_NE(keychain1, QVROAuth2Keychain::init());
}

TEST_F(KeychainOnceTest, InstancesShareItemsAndQueues) {
  const qvr::Ref<QVROAuth2Keychain> one = QVROAuth2Keychain::init();
  const qvr::Ref<QVROAuth2Keychain> other = QVROAuth2Keychain::init();
  EXPECT_NE(one, other);
  EXPECT_TRUE(one->setPasswordData(support::bytes("data"), "Google", "user"));
  EXPECT_EQ(other->passwordDataForService("Google", "user"), support::bytes("data"));
  EXPECT_EQ(one->delegateQueue(), other->delegateQueue());
  EXPECT_NE(one->delegateQueue(), QVROAuth2Keychain::queue());
}

TEST_F(KeychainOnceTest, QueuesAreMadeOnFirstUseAndOnlyOnce) {
  const qvr::Ref<QVROAuth2Keychain> store = QVROAuth2Keychain::defaultOAuth2Keychain();
  EXPECT_THAT(queues.labels(), IsEmpty());
  const qvr::Ref<qvr::Executor> queue = QVROAuth2Keychain::queue();
  EXPECT_THAT(queues.labels(), ElementsAre("org.example.mail.QVROAuth2Keychain.queue"));
  const qvr::Ref<qvr::Executor> delegateQueue = store->delegateQueue();
  EXPECT_EQ(queue, QVROAuth2Keychain::queue());
  EXPECT_EQ(delegateQueue, store->delegateQueue());
  EXPECT_THAT(queues.labels(), ElementsAre("org.example.mail.QVROAuth2Keychain.queue",
                                           "org.example.mail.QVROAuth2Keychain.delegateQueue"));
}

TEST_F(KeychainOnceTest, ManyThreadsGetTheSameObjects) {
  std::atomic<int> agreeing{0};
  const auto seen = std::make_shared<std::atomic<const void*>>(nullptr);
  support::runOnThreads(8, [&](std::size_t) {
    const void* const mine = QVROAuth2Keychain::defaultOAuth2Keychain().get();
    (void)QVROAuth2Keychain::queue();
    (void)QVROAuth2Keychain::defaultOAuth2Keychain()->delegateQueue();
    const void* first = nullptr;
    const bool isFirst = seen->compare_exchange_strong(first, mine);
    agreeing += isFirst || first == mine ? 1 : 0;
  });
  EXPECT_EQ(agreeing, 8);
  EXPECT_EQ(queues.labels().size(), 2);
}

TEST(KeychainWithoutItemsTest, RaisesEveryTime) {
  const qvr::ScopedWorld world;
  EXPECT_THROW(QVROAuth2Keychain::defaultOAuth2Keychain(), qvr::InternalInconsistencyException);
  EXPECT_THROW(QVROAuth2Keychain::defaultOAuth2Keychain(), qvr::InternalInconsistencyException);
  EXPECT_THROW(QVROAuth2Keychain::init(), qvr::InternalInconsistencyException);
}

}  // namespace
