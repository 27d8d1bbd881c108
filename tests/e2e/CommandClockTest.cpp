// qvr-oauth2 token when the clock of the machine was set back or forth. The servers' clock stays.
#include "tests/e2e/CommandTest.h"

namespace e2e {
namespace {

constexpr int kDay = 24 * 60 * 60;

class CommandClockTest : public CommandTest {
 protected:
  // The environment of a command whose clock is so many seconds ahead of the real one.
  static std::map<std::string, std::string> clockAhead(int seconds) {
    return {{"LD_PRELOAD", QVR_SHIFTED_CLOCK}, {"QVR_CLOCK_SHIFT", std::to_string(seconds)}};
  }

  // `token` by such a clock must print a token that the server takes.
  std::string expectToken(int secondsAhead, const std::string& further = "") {
    const Result result =
        token(further.empty() ? std::vector<std::string>{} : std::vector<std::string>{further},
              clockAhead(secondsAhead));
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_TRUE(counterpart.isActive(side(), result.output.substr(0, result.output.find('\n'))));
    return result.output;
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandClockTest, testing::Values("Google", "Microsoft"));

TEST_P(CommandClockTest, AClockSetForthByADayMakesATokenDueOnce) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const std::string first = expectToken(kDay);
  EXPECT_EQ(refreshes(), 1);
  EXPECT_EQ(expectToken(kDay), first);
  EXPECT_EQ(refreshes(), 1);
}

// How long the token is still valid cannot be told from a record that was made in the future.
TEST_P(CommandClockTest, AClockSetBackByADayMakesATokenDueOnce) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const std::string first = expectToken(-kDay);
  EXPECT_EQ(refreshes(), 1);
  EXPECT_EQ(expectToken(-kDay), first);
  EXPECT_EQ(refreshes(), 1);
}

TEST_P(CommandClockTest, AClockThatIsSetRightAgainMakesATokenDueOnce) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  expectToken(kDay, "--force-refresh");
  const std::string right = expectToken(0);
  EXPECT_EQ(refreshes(), 2);
  EXPECT_EQ(expectToken(0), right);
  EXPECT_EQ(refreshes(), 2);
}

TEST_P(CommandClockTest, AClockThatIsSomeSecondsBackStillServesTheToken) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const Result before = token();
  EXPECT_EQ(expectToken(-30), before.output);
  EXPECT_EQ(refreshes(), 0);
}

TEST_P(CommandClockTest, AFailedRefreshByAWrongClockLeavesTheRecord) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const Records before = records();
  for (const int shift : {-kDay, kDay}) {
    counterpart.fault(side(), "token", "status", R"(,"status":503)");
    const Result result = token({}, clockAhead(shift));
    EXPECT_EQ(result.status, 5) << result.error;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(records(), before);
  }
  EXPECT_EQ(token().status, 0);
}

}  // namespace
}  // namespace e2e
