// The asynchronous operations, step by step on manual queues.

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/storage/KeychainTest.h"

namespace {

using support::bytes;
using support::IsCall;
using support::IsErrorWithUserInfo;
using support::IsRead;
using support::IsUpdate;
using support::itemQuery;
using support::kAccount;
using support::kService;
using support::kServiceName;
using support::with;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kWorkQueue = "org.example.mail.QVROAuth2Keychain.queue";
constexpr const char* kDelegateQueue = "org.example.mail.QVROAuth2Keychain.delegateQueue";

class KeychainAsyncTest : public support::KeychainTest {
 protected:
  KeychainAsyncTest() {
    installHost();
    store = QVROAuth2Keychain::init();
  }

  void runWorkQueue() {
    while (queues.named(kWorkQueue)->runOne()) {
    }
  }

  // Handlers that note their answers, "name: answer".
  QVROAuth2KeychainDataCompletion noteData(const std::string& name) {
    return [this, name](const std::optional<qvr::Data>& data, const qvr::ErrorPtr& error) {
      note(name, data ? std::string(data->begin(), data->end()) : "nothing", error);
    };
  }
  QVROAuth2KeychainCompletion noteFlag(const std::string& name) {
    return [this, name](bool success, const qvr::ErrorPtr& error) {
      note(name, success ? "true" : "false", error);
    };
  }
  void note(const std::string& name, const std::string& result, const qvr::ErrorPtr& error) {
    answers.push_back(name + ": " + result + (error ? " " + std::to_string(error->code()) : ""));
    lastError = error;
  }

  qvr::Ref<QVROAuth2Keychain> store;
  std::vector<std::string> answers;
  qvr::ErrorPtr lastError;
};

TEST_F(KeychainAsyncTest, NoKeychainCallIsMadeOnTheCallersThread) {
  store->setPasswordData(bytes("data"), kService, kAccount, nullptr, noteFlag("set"));
  store->getPasswordDataForService(kService, kAccount, nullptr, noteData("get"));
  store->removePasswordDataForService(kService, kAccount, nullptr, noteFlag("remove"));
  EXPECT_THAT(keychain->calls(), IsEmpty());
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(queues.named(kWorkQueue)->pending(), 3) << "one function each is handed over";
}

TEST_F(KeychainAsyncTest, TheWorkIsThatOfTheSynchronousOperations) {
  store->setPasswordData(bytes("a"), kService, kAccount, nullptr, noteFlag("add"));
  store->setPasswordData(bytes("b"), kService, kAccount, nullptr, noteFlag("update"));
  store->getPasswordDataForService(kService, kAccount, nullptr, noteData("get"));
  store->removePasswordDataForService(kService, kAccount, nullptr, noteFlag("remove"));
  runAll();
  EXPECT_THAT(keychain->calls(),
              ElementsAre(IsCall("copyMatching", itemQuery()),
                          IsCall("add", with(itemQuery(), qvr::kSecValueData, bytes("a"))),
                          IsCall("copyMatching", itemQuery()), IsUpdate(itemQuery(), bytes("b")),
                          IsRead(itemQuery()), IsCall("remove", itemQuery())));
  EXPECT_THAT(answers, ElementsAre("add: true", "update: true", "get: b", "remove: true"));
}

TEST_F(KeychainAsyncTest, HandlersRunOnTheDelegateQueue) {
  store->setPasswordData(bytes("a"), kService, kAccount, nullptr, noteFlag("set"));
  runWorkQueue();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(queues.named(kDelegateQueue)->pending(), 1);
  EXPECT_TRUE(queues.named(kDelegateQueue)->runOne());
  EXPECT_THAT(answers, ElementsAre("set: true"));
}

TEST_F(KeychainAsyncTest, TheDelegateQueueIsMadeWhenAResultIsThere) {
  store->getPasswordDataForService(kService, kAccount, nullptr, noteData("get"));
  EXPECT_THAT(queues.labels(), ElementsAre(kWorkQueue));
  runWorkQueue();
  EXPECT_THAT(queues.labels(), ElementsAre(kWorkQueue, kDelegateQueue));
}

TEST_F(KeychainAsyncTest, GettingAnItemThatDoesNotExistAnswersNotFoundOnTheDelegateQueue) {
  store->getPasswordDataForService(kService, kAccount, nullptr, noteData("get"));
  runWorkQueue();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_TRUE(queues.named(kDelegateQueue)->runOne());
  EXPECT_THAT(answers, ElementsAre("get: nothing -25300"));
  EXPECT_THAT(lastError,
              IsErrorWithUserInfo(
                  "NSOSStatusErrorDomain", -25300,
                  support::described("The specified item could not be found in the keychain.")));
}

TEST_F(KeychainAsyncTest, FailuresAreAnsweredWithNothingOrFalse) {
  keychain->failWith([](const auto&) { return std::int32_t{-25308}; });
  store->setPasswordData(bytes("a"), kService, kAccount, nullptr, noteFlag("set"));
  store->getPasswordDataForService(kService, kAccount, nullptr, noteData("get"));
  store->removePasswordDataForService(kService, kAccount, nullptr, noteFlag("remove"));
  runAll();
  EXPECT_THAT(answers,
              ElementsAre("set: false -25308", "get: nothing -25308", "remove: false -25308"));
}

TEST_F(KeychainAsyncTest, ASetWithoutAHandlerStillWrites) {
  store->setPasswordData(bytes("a"), kService, kAccount, nullptr, nullptr);
  runAll();
  EXPECT_EQ(keychain->stored(kServiceName, kAccount), bytes("a"));
  EXPECT_THAT(queues.labels(), ElementsAre(kWorkQueue)) << "nothing is delivered anywhere";
}

TEST_F(KeychainAsyncTest, ARemovalWithoutAHandlerStillRemoves) {
  keychain->put(kServiceName, kAccount, bytes("a"));
  store->removePasswordDataForService(kService, kAccount, nullptr, nullptr);
  runAll();
  EXPECT_EQ(keychain->itemCount(), 0);
}

TEST_F(KeychainAsyncTest, AFailureWithoutAHandlerIsDroppedSilently) {
  keychain->failWith([](const auto&) { return std::int32_t{-36}; });
  store->setPasswordData(bytes("a"), kService, kAccount, nullptr, nullptr);
  store->getPasswordDataForService(kService, kAccount, nullptr, nullptr);
  store->removePasswordDataForService(kService, kAccount, nullptr, nullptr);
  EXPECT_NO_THROW(runAll());
  EXPECT_THAT(*log, IsEmpty());
  EXPECT_THAT(queues.labels(), ElementsAre(kWorkQueue));
}

TEST_F(KeychainAsyncTest, TwoSetsLeaveTheSecondValueAndAnswerInOrder) {
  store->setPasswordData(bytes("first"), kService, kAccount, nullptr, noteFlag("first"));
  store->setPasswordData(bytes("second"), kService, kAccount, nullptr, noteFlag("second"));
  runAll();
  EXPECT_EQ(keychain->stored(kServiceName, kAccount), bytes("second"));
  EXPECT_EQ(keychain->itemCount(), 1);
  EXPECT_THAT(answers, ElementsAre("first: true", "second: true"));
}

TEST_F(KeychainAsyncTest, AGivenQueueGetsTheHandlerAndNoDelegateQueueIsMade) {
  const auto own = qvr::makeRef<support::ManualQueue>("own");
  store->setPasswordData(bytes("a"), kService, kAccount, own, noteFlag("set"));
  store->getPasswordDataForService(kService, kAccount, own, noteData("get"));
  store->removePasswordDataForService(kService, kAccount, own, noteFlag("remove"));
  runAll();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(own->pending(), 3);
  while (own->runOne()) {
  }
  EXPECT_THAT(answers, ElementsAre("set: true", "get: a", "remove: true"));
  EXPECT_THAT(queues.labels(), ElementsAre(kWorkQueue));
}

TEST_F(KeychainAsyncTest, AllInstancesUseOneWorkQueueInTheOrderOfSubmission) {
  const qvr::Ref<QVROAuth2Keychain> other = QVROAuth2Keychain::init();
  store->setPasswordData(bytes("a"), kService, kAccount, nullptr, noteFlag("store"));
  other->setPasswordData(bytes("b"), kService, kAccount, nullptr, noteFlag("other"));
  store->getPasswordDataForService(kService, kAccount, nullptr, noteData("store"));
  EXPECT_EQ(queues.named(kWorkQueue)->pending(), 3);
  runAll();
  EXPECT_THAT(answers, ElementsAre("store: true", "other: true", "store: b"));
}

TEST_F(KeychainAsyncTest, ARequestKeepsWhatItNeeds) {
  auto own = qvr::makeRef<support::ManualQueue>("own");
  support::ManualQueue* const plain = own.get();
  const auto held = std::make_shared<int>(0);
  {
    std::string service = "Google";
    std::string account = "copied";
    qvr::Data data = bytes("data");
    store->setPasswordData(data, service, account, std::move(own),
                           [this, held](bool success, const qvr::ErrorPtr& error) {
                             note("set", success ? "true" : "false", error);
                           });
    service = account = "changed";
    data.assign(4, 'x');
    store = nullptr;
  }
  EXPECT_EQ(held.use_count(), 2);
  const auto queue = qvr::Ref<support::ManualQueue>::retain(plain);
  runWorkQueue();
  EXPECT_TRUE(queue->runOne());
  EXPECT_EQ(keychain->stored(kServiceName, "copied"), bytes("data"));
  EXPECT_THAT(answers, ElementsAre("set: true"));
  EXPECT_EQ(held.use_count(), 1) << "the handler is released after its call";
  EXPECT_EQ(queue->retainCount(), 1) << "and so is the queue";
}

TEST_F(KeychainAsyncTest, AnAbsentServiceRaisesAtOnceAndNothingIsSubmitted) {
  EXPECT_THROW(store->getPasswordDataForService(nullptr, kAccount, nullptr, noteData("get")),
               qvr::InvalidArgumentException);
  EXPECT_THROW(store->setPasswordData(bytes("a"), nullptr, kAccount, nullptr, noteFlag("set")),
               qvr::InvalidArgumentException);
  EXPECT_THROW(store->removePasswordDataForService(nullptr, kAccount, nullptr, noteFlag("remove")),
               qvr::InvalidArgumentException);
  EXPECT_THAT(queues.labels(), IsEmpty());
}

TEST_F(KeychainAsyncTest, AnAbsentAccountRaisesOnTheWorkQueueAndNobodyIsAnswered) {
  store->getPasswordDataForService(kService, nullptr, nullptr, noteData("get"));
  store->setPasswordData(bytes("a"), kService, nullptr, nullptr, noteFlag("set"));
  store->removePasswordDataForService(kService, nullptr, nullptr, noteFlag("remove"));
  for (int i = 0; i < 3; ++i)
    EXPECT_THROW(queues.named(kWorkQueue)->runOne(), qvr::InvalidArgumentException);
  runAll();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(keychain->itemCount(), 0);
}

TEST_F(KeychainAsyncTest, AHandlerMayStartAnotherRequest) {
  store->setPasswordData(
      bytes("a"), kService, kAccount, nullptr, [this](bool success, const qvr::ErrorPtr& error) {
        note("set", success ? "true" : "false", error);
        store->getPasswordDataForService(kService, kAccount, nullptr, noteData("get"));
      });
  runAll();
  EXPECT_THAT(answers, ElementsAre("set: true", "get: a"));
}

}  // namespace
