// The wait for a prompt, where it cannot begin. What prompts end with: SecretServiceLockedTest.cpp.

#include <gtest/gtest.h>

#include "src/ports/SecretServiceErrors.h"
#include "src/ports/SecretServicePrompt.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using std::chrono::seconds;

TEST(SecretServicePromptTest, SignalsThatCannotBeSubscribedToEndTheWaitBeforeItBegins) {
  const support::PrivateBus address;
  const auto bus = qvr::BusConnection::open(address.address(), seconds(10), nullptr);
  ASSERT_TRUE(bus);
  bool wasShown = false;
  const qvr::SecretServicePrompt prompt{":1.1", "no path", seconds(60), seconds(60),
                                        [&wasShown] { wasShown = true; }};
  try {
    qvr::completeSecretServicePrompt(*bus, prompt);
    FAIL() << "there is no such prompt";
  } catch (const qvr::SecretServiceFailure& failure) {
    EXPECT_TRUE(failure.isDeath) << "another connection may serve";
  }
  EXPECT_FALSE(wasShown);
}

}  // namespace
}  // namespace ports_test
