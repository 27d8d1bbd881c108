// Several commands at once on one account: one refresh, no lost token, and nothing that comes back
// after it was removed.
#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "tests/e2e/CommandTest.h"
#include "tests/e2e/HeldLock.h"

namespace e2e {
namespace {

using Process = std::unique_ptr<support::ChildProcess>;
using Moment = Counterpart::Moment;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int kCommands = 30;
constexpr double kLittle = 0.3;  // seconds in which a command that need not wait is done
constexpr const char* kWaits = "waiting for the account's lock";

class CommandRaceTest : public CommandTest {
 protected:
  std::vector<Process> startMany(const std::vector<std::string>& arguments) {
    std::vector<Process> commands;
    for (int i = 0; i < kCommands; ++i)
      commands.push_back(start(arguments));
    return commands;
  }

  // Waits for them all, which must succeed; what they printed, without repetition.
  static std::set<std::string> outputsOf(const std::vector<Process>& commands) {
    std::set<std::string> outputs;
    for (const Process& command : commands) {
      const Result result = resultOf(*command);
      EXPECT_EQ(result.status, 0) << result.error;
      outputs.insert(result.output);
    }
    return outputs;
  }

  static std::string lineOf(const std::string& output) {
    return output.substr(0, output.find('\n'));
  }

  // A command that waits for the account's lock, or is about to.
  Process startWaiting(std::vector<std::string> arguments) {
    arguments.emplace_back("--verbose");
    Process command = start(arguments);
    EXPECT_TRUE(command->waitForError(kWaits)) << command->error();
    return command;
  }

  std::string runtimeFolder() const { return folder.file("run/qvr-oauth2"); }
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandRaceTest, testing::Values("Google", "Microsoft"));

TEST_P(CommandRaceTest, ThirtyCommandsRefreshADueTokenOnceAndAllPrintTheNewOne) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const auto outputs = outputsOf(startMany(tokenCommand()));
  ASSERT_THAT(outputs, SizeIs(1));
  EXPECT_TRUE(counterpart.isActive(side(), lineOf(*outputs.begin())));
  EXPECT_EQ(refreshes(), 1);
}

// Held until all have read the old token, so that all of them were forced to replace the same one.
TEST_P(CommandRaceTest, ThirtyForcedRefreshesOfOneTokenAreOne) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const Result before = token();
  counterpart.hold(side(), Moment::kAfterTheAnswer);
  const auto commands = startMany(tokenCommand({"--force-refresh", "--verbose"}));
  for (const Process& command : commands)
    EXPECT_TRUE(command->waitForError(kWaits)) << command->error();
  counterpart.waitUntilHeld(side());
  counterpart.release(side());
  const auto outputs = outputsOf(commands);
  ASSERT_THAT(outputs, SizeIs(1));
  EXPECT_NE(*outputs.begin(), before.output);
  EXPECT_TRUE(counterpart.isActive(side(), lineOf(*outputs.begin())));
  EXPECT_EQ(refreshes(), 1);
}

TEST_P(CommandRaceTest, TwoAccountsDoNotWaitForEachOther) {
  const std::string other = "bob@example.com";
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken(other));
  const Process held = startHeld(Moment::kBeforeTheAnswer);
  const Result result = run({"token", provider(), other});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_NE(result.output, "");
  counterpart.release(side());
  EXPECT_EQ(resultOf(*held).status, 0);
  EXPECT_EQ(refreshes(), 2);
}

TEST_P(CommandRaceTest, AFreshTokenIsServedWhileAnotherCommandHasTheLock) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const HeldLock lock(runtimeFolder());
  const Result result = token({"--timeout", "5"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_NE(result.output, "");
}

TEST_P(CommandRaceTest, WaitingForTheLockEndsAtTheTimeoutWithoutARefresh) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Records before = records();
  const HeldLock lock(runtimeFolder());
  const Result result = token({"--timeout", "1"});
  EXPECT_EQ(result.status, 5) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(records(), before);
  EXPECT_EQ(refreshes(), 0);
}

TEST_P(CommandRaceTest, TheLockOfACommandThatWasKilledIsFree) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Process killed = startHeld(Moment::kBeforeTheAnswer);
  const Process waiting = startWaiting(tokenCommand());
  killed->signal(SIGKILL);
  EXPECT_EQ(killed->wait(), 128 + SIGKILL);
  const Result result = resultOf(*waiting);
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_EQ(refreshes(), 2);
}

TEST_P(CommandRaceTest, SignOutWaitsForARefreshAndRemovesWhatItBrought) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Process refreshing = startHeld(Moment::kAfterTheAnswer);
  const Process signingOut = startWaiting({"sign-out", provider(), kUser});
  EXPECT_EQ(signingOut->wait(kLittle), -1) << "it has not ended";
  counterpart.release(side());
  const Result refreshed = resultOf(*refreshing);
  EXPECT_EQ(refreshed.status, 0) << refreshed.error;
  const Result signedOut = resultOf(*signingOut);
  EXPECT_EQ(signedOut.status, 0) << signedOut.error;
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(token().status, 3);
  const bool canRevoke = provider() == "Google";
  EXPECT_EQ(counterpart.isActive(side(), lineOf(refreshed.output)), !canRevoke);
}

TEST_P(CommandRaceTest, ATokenCommandThatWaitedForARemovalSendsNothingAndExitsWith3) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  HeldLock lock(runtimeFolder());
  const Process waiting = startWaiting(tokenCommand());
  removeRecords();
  lock.release();
  const Result result = resultOf(*waiting);
  EXPECT_EQ(result.status, 3) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(refreshes(), 0);
}

TEST_P(CommandRaceTest, SignInWaitsForARefreshAndItsTokenStays) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Process refreshing = startHeld(Moment::kAfterTheAnswer);
  const Process signingIn = start({"sign-in", provider(), kUser, "--timeout", "60", "--verbose"},
                                  {{"BROWSER", browserFor(kUser)}});
  EXPECT_TRUE(signingIn->waitForError(kWaits)) << signingIn->error();
  counterpart.release(side());
  const Result refreshed = resultOf(*refreshing);
  EXPECT_EQ(refreshed.status, 0) << refreshed.error;
  EXPECT_EQ(resultOf(*signingIn).status, 0);
  const Result result = token();
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_NE(result.output, refreshed.output);
  EXPECT_TRUE(counterpart.isActive(side(), lineOf(result.output)));
  EXPECT_EQ(refreshes(), 1);
}

class GoogleRaceTest : public CommandRaceTest {};
INSTANTIATE_TEST_SUITE_P(Providers, GoogleRaceTest, testing::Values("Google"));

TEST_P(GoogleRaceTest, ATokenCommandWaitsForARevocationAndBringsNothingBack) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  counterpart.hold(side(), Moment::kBeforeTheAnswer, "revoke");
  const Process signingOut = start({"sign-out", provider(), kUser});
  counterpart.waitUntilHeld(side());
  const Process waiting = startWaiting(tokenCommand());
  EXPECT_EQ(waiting->wait(kLittle), -1) << "it has not ended";
  counterpart.release(side());
  EXPECT_EQ(resultOf(*signingOut).status, 0);
  const Result result = resultOf(*waiting);
  EXPECT_EQ(result.status, 3) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(refreshes(), 0);
}

}  // namespace
}  // namespace e2e
