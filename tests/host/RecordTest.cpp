// What the commands do to stored records.
#include <utility>

#include "host/Record.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"

namespace host_test {
namespace {

using RecordTest = CommandTest;

TEST_F(RecordTest, AnItemThatAnotherProcessAddsMeanwhileIsReplaced) {
  install();
  bool isFirst = true;
  keychain->onCall([&](const support::FakeKeychain::Call& call) {
    if (call.operation == "add" && std::exchange(isFirst, false)) putItem(google, "another's");
  });
  EXPECT_FALSE(host::storeRecord(google, record("access", "refresh", 3600)));
  EXPECT_EQ(keychain->itemCount(), 1U);
  qvr::ErrorPtr error;
  const auto stored = host::readRecord(google, &error);
  ASSERT_TRUE(stored) << error->description();
  EXPECT_EQ(stored->accessToken(), "access");
}

TEST_F(RecordTest, AKeychainThatKeepsSayingThatTheItemIsThereIsBelievedInTheEnd) {
  install();
  keychain->failEvery("add", qvr::errSecDuplicateItem);
  const qvr::ErrorPtr error = host::storeRecord(google, record("access", "refresh", 3600));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(qvr::NSOSStatusErrorDomain, qvr::errSecDuplicateItem));
  EXPECT_EQ(keychain->count("add"), 2U);
}

TEST_F(RecordTest, ATokenThatCameAtTheLastMomentIsStored) {
  install();
  const ScopedDeadline deadline(-1);
  EXPECT_FALSE(host::storeRecord(google, record("access", "refresh", 3600)));
  EXPECT_EQ(keychain->itemCount(), 1U);
}

}  // namespace
}  // namespace host_test
