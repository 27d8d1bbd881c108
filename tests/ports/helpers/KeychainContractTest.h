// The tests that every keychain port passes. They are in KeychainContractTest.cpp; a port joins
// them by INSTANTIATE_TEST_SUITE_P, with a Port that makes its keychain.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/ports/helpers/KeychainQueries.h"
#include "tests/support/ChildProcess.h"

namespace ports_test {

struct Port {
  std::string name;

  // Makes an empty keychain. It may use the folder, and leave in `world` what has to live as long.
  std::function<qvr::Ref<qvr::KeychainItems>(const support::TemporaryFolder& folder,
                                             std::shared_ptr<void>* world)>
      make;
};

class KeychainContractTest : public testing::TestWithParam<Port> {
 protected:
  std::vector<qvr::KeychainItemName> list() const {
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(keychain_->list(&names), qvr::errSecSuccess);
    return names;
  }

  const support::TemporaryFolder folder_;
  std::shared_ptr<void> world_;
  const qvr::Ref<qvr::KeychainItems> keychain_ = GetParam().make(folder_, &world_);
  const Item item_{*keychain_};
};

}  // namespace ports_test
