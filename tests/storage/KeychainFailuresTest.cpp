// What the store makes of a keychain's statuses, and of callers' errors.

#include <limits>

#include "QVROAuth2Client/platform/Exception.h"
#include "tests/storage/KeychainTest.h"
#include "tests/support/Countdown.h"

namespace {

using support::bytes;
using support::earlierError;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::kAccount;
using support::kService;
using support::kServiceName;
using testing::IsEmpty;

class KeychainFailuresTest : public support::KeychainTest {
 protected:
  KeychainFailuresTest() {
    installHost();
    store = QVROAuth2Keychain::init();
  }

  qvr::Ref<QVROAuth2Keychain> store;
};

struct StatusCase {
  std::int32_t status;
  const char* message;  // null for a status that has none
};

constexpr StatusCase kStatuses[] = {
    {-25300, "The specified item could not be found in the keychain."},
    {-25299, "The specified item already exists in the keychain."},
    {-25308, "User interaction is not allowed."},
    {-128, "User canceled the operation."},
    {-25293, "The user name or passphrase you entered is not correct."},
    {-25291, "No keychain is available. You may need to restart your computer."},
    {-36, "I/O error."},
    {-34, "The disk is full."},
    {-61, "Write permissions error."},
    {-26275, "Unable to decode the provided data."},
    {-25295, "The specified keychain is not a valid keychain file."},
    {-50, "One or more parameters passed to a function were not valid."},
    {-108, "Failed to allocate memory."},
    {-25301, nullptr},
    {1, nullptr},
    {std::numeric_limits<std::int32_t>::max(), nullptr},
    {std::numeric_limits<std::int32_t>::min(), nullptr},
};

void expectErrorOf(const StatusCase& c, const qvr::ErrorPtr& error) {
  if (c.message != nullptr) {
    EXPECT_THAT(error, IsErrorWithUserInfo("NSOSStatusErrorDomain", c.status,
                                           support::described(c.message)));
  } else {
    EXPECT_THAT(error, IsErrorWithoutUserInfo("NSOSStatusErrorDomain", c.status));
  }
}

TEST_F(KeychainFailuresTest, AFailedReadGivesTheStatusAndItsMessage) {
  keychain->put(kServiceName, kAccount, bytes("data"));
  for (const StatusCase& c : kStatuses) {
    keychain->failEvery("copyMatching", c.status);
    qvr::ErrorPtr error = earlierError();
    EXPECT_EQ(store->passwordDataForService(kService, kAccount, &error), std::nullopt);
    expectErrorOf(c, error);
  }
  EXPECT_EQ(keychain->calls().size(), std::size(kStatuses)) << "nothing is retried";
}

TEST_F(KeychainFailuresTest, AFailedRemovalGivesTheStatusAndItsMessage) {
  keychain->put(kServiceName, kAccount, bytes("data"));
  for (const StatusCase& c : kStatuses) {
    keychain->failEvery("remove", c.status);
    qvr::ErrorPtr error = earlierError();
    EXPECT_FALSE(store->removePasswordDataForService(kService, kAccount, &error));
    expectErrorOf(c, error);
  }
  EXPECT_EQ(keychain->calls().size(), std::size(kStatuses)) << "nothing is retried";
}

TEST_F(KeychainFailuresTest, AFailedProbeIsTheResultAndNothingIsWritten) {
  for (const StatusCase& c : kStatuses) {
    if (c.status == qvr::errSecItemNotFound) continue;  // then the item is added
    keychain->failEvery("copyMatching", c.status);
    qvr::ErrorPtr error = earlierError();
    EXPECT_FALSE(store->setPasswordData(bytes("data"), kService, kAccount, &error));
    expectErrorOf(c, error);
  }
  EXPECT_EQ(keychain->count("add") + keychain->count("update"), 0);
  EXPECT_EQ(keychain->itemCount(), 0);
}

TEST_F(KeychainFailuresTest, AFailedAdditionIsTheResult) {
  for (const StatusCase& c : kStatuses) {
    keychain->failEvery("add", c.status);
    qvr::ErrorPtr error = earlierError();
    EXPECT_FALSE(store->setPasswordData(bytes("data"), kService, kAccount, &error));
    expectErrorOf(c, error);
  }
  EXPECT_EQ(keychain->count("add"), std::size(kStatuses)) << "nothing is retried";
  EXPECT_EQ(keychain->count("update"), 0) << "an item that is there after all is left alone";
}

TEST_F(KeychainFailuresTest, AFailedUpdateIsTheResultAndTheItemStays) {
  keychain->put(kServiceName, kAccount, bytes("before"));
  for (const StatusCase& c : kStatuses) {
    keychain->failEvery("update", c.status);
    qvr::ErrorPtr error = earlierError();
    EXPECT_FALSE(store->setPasswordData(bytes("after"), kService, kAccount, &error));
    expectErrorOf(c, error);
  }
  EXPECT_EQ(keychain->count("update"), std::size(kStatuses)) << "nothing is retried";
  EXPECT_EQ(keychain->count("add"), 0) << "an item that went meanwhile is not added";
  EXPECT_EQ(keychain->stored(kServiceName, kAccount), bytes("before"));
}

TEST_F(KeychainFailuresTest, AnErrorWhoseStatusHasNoMessageCarriesNoUserInfo) {
  constexpr std::int32_t kUnknownStatus = -4321;
  keychain->failEvery("copyMatching", kUnknownStatus);
  qvr::ErrorPtr error;
  EXPECT_EQ(store->passwordDataForService(kService, kAccount, &error), std::nullopt);
  EXPECT_THAT(error, IsErrorWithoutUserInfo("NSOSStatusErrorDomain", kUnknownStatus));
}

TEST_F(KeychainFailuresTest, ACallerMayDoWithoutTheError) {
  keychain->failWith([](const auto&) { return std::int32_t{-36}; });
  EXPECT_EQ(store->passwordDataForService(kService, kAccount), std::nullopt);
  EXPECT_FALSE(store->setPasswordData(bytes("data"), kService, kAccount));
  EXPECT_FALSE(store->removePasswordDataForService(kService, kAccount));
}

TEST_F(KeychainFailuresTest, NothingIsLogged) {
  keychain->failWith([](const auto&) { return std::int32_t{-36}; });
  qvr::ErrorPtr error;
  (void)store->passwordDataForService(kService, kAccount, &error);
  (void)store->setPasswordData(bytes("data"), kService, kAccount, &error);
  (void)store->removePasswordDataForService(kService, kAccount, &error);
  EXPECT_THAT(*log, IsEmpty());
}

// Fails everything, and counts who asks why.
class Unhelpful final : public qvr::KeychainItems {
 public:
  std::int32_t copyMatching(const qvr::KeychainQuery&, qvr::Data*) override { return -7; }
  std::int32_t add(const qvr::KeychainQuery&) override { return -7; }
  std::int32_t update(const qvr::KeychainQuery&, const qvr::KeychainQuery&) override { return -7; }
  std::int32_t remove(const qvr::KeychainQuery&) override { return -7; }
  std::int32_t list(std::vector<qvr::KeychainItemName>*) override { return -7; }
  qvr::Text messageForStatus(std::int32_t status) const override {
    asked.push_back(status);
    return "of its own";
  }

  mutable std::vector<std::int32_t> asked;
};

class KeychainMessagesTest : public support::LibraryTest {
 protected:
  KeychainMessagesTest() {
    host.setKeychainItems(items);
    installHost();
    store = QVROAuth2Keychain::init();
  }

  qvr::Ref<Unhelpful> items = qvr::makeRef<Unhelpful>();
  qvr::Ref<QVROAuth2Keychain> store;
};

TEST_F(KeychainMessagesTest, TheMessageIsTheKeychainsOwn) {
  qvr::ErrorPtr error;
  EXPECT_FALSE(store->removePasswordDataForService(kService, kAccount, &error));
  EXPECT_THAT(error,
              IsErrorWithUserInfo("NSOSStatusErrorDomain", -7, support::described("of its own")));
  EXPECT_THAT(items->asked, testing::ElementsAre(-7));
}

TEST_F(KeychainMessagesTest, NoErrorIsBuiltForACallerThatGaveNoPlaceForIt) {
  (void)store->passwordDataForService(kService, kAccount);
  (void)store->setPasswordData(bytes("data"), kService, kAccount);
  (void)store->removePasswordDataForService(kService, kAccount);
  EXPECT_THAT(items->asked, IsEmpty());
}

class KeychainArgumentsTest : public KeychainFailuresTest {
 protected:
  // Whether another thread gets into the instance, which it does not while its monitor is held.
  bool isUnlocked() {
    const auto entered = std::make_shared<support::Countdown>();
    std::thread([entered, other = store] {
      (void)other->passwordDataForService(kService, kAccount);
      entered->arrive();
    }).detach();
    return entered->wait();
  }
};

TEST_F(KeychainArgumentsTest, AnAbsentServiceRaisesBeforeTheKeychainIsTouched) {
  qvr::ErrorPtr error;
  EXPECT_THROW(store->passwordDataForService(nullptr, kAccount, &error),
               qvr::InvalidArgumentException);
  EXPECT_THROW(store->setPasswordData(bytes("data"), nullptr, kAccount, &error),
               qvr::InvalidArgumentException);
  EXPECT_THROW(store->removePasswordDataForService(nullptr, kAccount, &error),
               qvr::InvalidArgumentException);
  EXPECT_EQ(error, nullptr);
  EXPECT_THAT(keychain->calls(), IsEmpty());
  EXPECT_TRUE(isUnlocked());
}

TEST_F(KeychainArgumentsTest, AnAbsentAccountRaisesAndLeavesTheMonitorUnlocked) {
  EXPECT_THROW(store->passwordDataForService(kService, nullptr), qvr::InvalidArgumentException);
  EXPECT_TRUE(isUnlocked());
  EXPECT_THROW(store->setPasswordData(bytes("data"), kService, nullptr),
               qvr::InvalidArgumentException);
  EXPECT_TRUE(isUnlocked());
  EXPECT_THROW(store->removePasswordDataForService(kService, nullptr),
               qvr::InvalidArgumentException);
  EXPECT_TRUE(isUnlocked());
  EXPECT_EQ(keychain->count("add") + keychain->count("update") + keychain->count("remove"), 0);
}

TEST_F(KeychainArgumentsTest, AnExceptionOfTheKeychainLeavesTheMonitorUnlocked) {
  keychain->onCall([](const auto&) { throw qvr::RangeException("from within"); });
  EXPECT_THROW(store->passwordDataForService(kService, kAccount), qvr::RangeException);
  keychain->onCall(nullptr);
  EXPECT_TRUE(isUnlocked());
}

}  // namespace
