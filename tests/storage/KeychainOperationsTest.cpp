// The synchronous operations: which keychain calls they make, and what they answer.

#include "tests/storage/KeychainPrimitives.h"
#include "tests/storage/KeychainTest.h"

namespace {

using Primitives = QVROAuth2KeychainPrimitives;
using support::bytes;
using support::earlierError;
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

class KeychainOperationsTest : public support::KeychainTest {
 protected:
  KeychainOperationsTest() {
    installHost();
    store = QVROAuth2Keychain::init();
  }

  qvr::Ref<QVROAuth2Keychain> store;
};

TEST_F(KeychainOperationsTest, ReadingAsksForTheDataOfTheItem) {
  keychain->put(kServiceName, kAccount, bytes("data"));
  const auto calls =
      callsOf([&] { EXPECT_EQ(store->passwordDataForService(kService, kAccount), bytes("data")); });
  EXPECT_THAT(calls, ElementsAre(IsRead(itemQuery())));
}

TEST_F(KeychainOperationsTest, ReadingAnItemThatDoesNotExistFailsWithNotFound) {
  qvr::ErrorPtr error;
  EXPECT_EQ(store->passwordDataForService(kService, kAccount, &error), std::nullopt);
  EXPECT_THAT(error, IsErrorWithUserInfo("NSOSStatusErrorDomain", -25300,
                                         support::described("The specified item could not be found "
                                                            "in the keychain.")));
}

TEST_F(KeychainOperationsTest, SettingANewItemProbesAndThenAddsIt) {
  const auto calls =
      callsOf([&] { EXPECT_TRUE(store->setPasswordData(bytes("data"), kService, kAccount)); });
  EXPECT_THAT(calls,
              ElementsAre(IsCall("copyMatching", itemQuery()),
                          IsCall("add", with(itemQuery(), qvr::kSecValueData, bytes("data")))));
  EXPECT_EQ(keychain->stored(kServiceName, kAccount), bytes("data"));
  EXPECT_EQ(keychain->itemCount(), 1);
}

TEST_F(KeychainOperationsTest, SettingAgainReplacesTheDataOfTheSameItem) {
  EXPECT_TRUE(store->setPasswordData(bytes("first"), kService, kAccount));
  const auto calls =
      callsOf([&] { EXPECT_TRUE(store->setPasswordData(bytes("second"), kService, kAccount)); });
  EXPECT_THAT(calls, ElementsAre(IsCall("copyMatching", itemQuery()),
                                 IsUpdate(itemQuery(), bytes("second"))));
  EXPECT_EQ(keychain->stored(kServiceName, kAccount), bytes("second"));
  EXPECT_EQ(keychain->itemCount(), 1);
}

TEST_F(KeychainOperationsTest, RemovingDeletesTheItem) {
  keychain->put(kServiceName, kAccount, bytes("data"));
  const auto calls =
      callsOf([&] { EXPECT_TRUE(store->removePasswordDataForService(kService, kAccount)); });
  EXPECT_THAT(calls, ElementsAre(IsCall("remove", itemQuery())));
  EXPECT_EQ(keychain->itemCount(), 0);
}

TEST_F(KeychainOperationsTest, RemovingAnItemThatDoesNotExistFailsWithNotFound) {
  qvr::ErrorPtr error;
  EXPECT_FALSE(store->removePasswordDataForService(kService, kAccount, &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(qvr::NSOSStatusErrorDomain, -25300));
}

TEST_F(KeychainOperationsTest, AnyBytesComeBackAsTheyWere) {
  qvr::Data everyByte;
  for (int i = 0; i < 256; ++i)
    everyByte.push_back(static_cast<std::uint8_t>(i));
  for (const qvr::Data& data : {everyByte, qvr::Data(), qvr::Data(100000, 0)}) {
    EXPECT_TRUE(store->setPasswordData(data, kService, kAccount));
    EXPECT_EQ(store->passwordDataForService(kService, kAccount), data);
  }
}

TEST_F(KeychainOperationsTest, ItemsDifferByServiceAndByAccount) {
  const std::pair<const char*, const char*> names[] = {
      {"Google", "a"}, {"Google", "A"}, {"Google", ""}, {"Microsoft", "a"}};
  for (const auto& [service, account] : names) {
    EXPECT_TRUE(
        store->setPasswordData(bytes(std::string(service) + "/" + account), service, account));
  }
  EXPECT_EQ(keychain->itemCount(), 4);
  for (const auto& [service, account] : names) {
    EXPECT_EQ(store->passwordDataForService(service, account),
              bytes(std::string(service) + "/" + account));
  }
}

TEST_F(KeychainOperationsTest, OnSuccessTheErrorPlaceKeepsWhatItHeld) {
  const qvr::ErrorPtr before = earlierError();
  qvr::ErrorPtr error = before;
  EXPECT_TRUE(store->setPasswordData(bytes("new"), kService, kAccount, &error));
  EXPECT_EQ(error, before);
  EXPECT_TRUE(store->setPasswordData(bytes("replaced"), kService, kAccount, &error));
  EXPECT_EQ(error, before);
  EXPECT_TRUE(store->passwordDataForService(kService, kAccount, &error));
  EXPECT_EQ(error, before);
  EXPECT_TRUE(store->removePasswordDataForService(kService, kAccount, &error));
  EXPECT_EQ(error, before);
}

TEST_F(KeychainOperationsTest, PrimitivesTakeTheDerivedNameAndMakeTheSameCalls) {
  const auto calls = callsOf([&] {
    EXPECT_TRUE(Primitives::set(*store, bytes("a"), "derived", "account"));
    EXPECT_TRUE(Primitives::set(*store, bytes("b"), "derived", "account"));
    EXPECT_EQ(Primitives::passwordData(*store, "derived", "account"), bytes("b"));
    EXPECT_TRUE(Primitives::remove(*store, "derived", "account"));
  });
  const qvr::KeychainQuery query = itemQuery("derived", "account");
  EXPECT_THAT(calls, ElementsAre(IsCall("copyMatching", query),
                                 IsCall("add", with(query, qvr::kSecValueData, bytes("a"))),
                                 IsCall("copyMatching", query), IsUpdate(query, bytes("b")),
                                 IsRead(query), IsCall("remove", query)));
}

TEST_F(KeychainOperationsTest, NeverUseTheQueues) {
  (void)store->passwordDataForService(kService, kAccount);
  (void)store->setPasswordData(bytes("data"), kService, kAccount);
  (void)store->removePasswordDataForService(kService, kAccount);
  EXPECT_THAT(queues.labels(), IsEmpty());
}

}  // namespace
