#include <gtest/gtest.h>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/ports/helpers/KeychainQueries.h"

namespace ports_test {
namespace {

TEST(InMemoryKeychainTest, ItemsLiveAsLongAsTheObject) {
  auto keychain = qvr::makeInMemoryKeychain();
  ASSERT_EQ(Item{*keychain}.add("secret"), qvr::errSecSuccess);
  keychain = qvr::makeInMemoryKeychain();
  EXPECT_EQ(Item{*keychain}.probe(), qvr::errSecItemNotFound);
}

TEST(InMemoryKeychainTest, ObjectsDoNotShareItems) {
  const auto one = qvr::makeInMemoryKeychain();
  const auto other = qvr::makeInMemoryKeychain();
  ASSERT_EQ(Item{*one}.add("one"), qvr::errSecSuccess);
  ASSERT_EQ(Item{*other}.add("other"), qvr::errSecSuccess);
  EXPECT_EQ(Item{*one}.text(), "one");
  EXPECT_EQ(Item{*other}.text(), "other");
}

TEST(InMemoryKeychainTest, WhatWasReadIsACopy) {
  const auto keychain = qvr::makeInMemoryKeychain();
  ASSERT_EQ(Item{*keychain}.add("first"), qvr::errSecSuccess);
  qvr::Data read;
  ASSERT_EQ(Item{*keychain}.read(&read), qvr::errSecSuccess);
  ASSERT_EQ(Item{*keychain}.update("second"), qvr::errSecSuccess);
  EXPECT_EQ(read, bytes("first"));
}

}  // namespace
}  // namespace ports_test
