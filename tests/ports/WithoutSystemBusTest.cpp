// The ports of a build without D-Bus: each says that it is not there.

#include <gtest/gtest.h>

#include "QVROAuth2Client/platform/Desktop.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "tests/ports/helpers/KeychainQueries.h"

namespace ports_test {
namespace {

TEST(WithoutSystemBusTest, KeychainIsNotAvailable) {
  const auto keychain = qvr::makeSecretServiceKeychain();
  const Item item{*keychain};
  qvr::Data data;
  std::vector<qvr::KeychainItemName> names;
  EXPECT_EQ(item.read(&data), qvr::errSecNotAvailable);
  EXPECT_EQ(item.add("x"), qvr::errSecNotAvailable);
  EXPECT_EQ(item.update("x"), qvr::errSecNotAvailable);
  EXPECT_EQ(item.remove(), qvr::errSecNotAvailable);
  EXPECT_EQ(keychain->list(&names), qvr::errSecNotAvailable);
}

TEST(WithoutSystemBusTest, ReasonIsTheBuild) {
  const qvr::SecretServiceState state = qvr::examineSecretService();
  EXPECT_EQ(state.kind, qvr::SecretServiceState::Kind::kAbsent);
  EXPECT_EQ(state.reason,
            "This build has no D-Bus support: libsystemd was not there when it was made.");
  std::string problem;
  EXPECT_EQ(qvr::makeURLReceiver({}, &problem), nullptr);
  EXPECT_EQ(problem, state.reason);
  EXPECT_FALSE(qvr::showNotification({}));
}

}  // namespace
}  // namespace ports_test
