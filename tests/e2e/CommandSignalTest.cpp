// qvr-oauth2 token and the signals that ask it to end: no moment of them costs a token.
#include <signal.h>

#include <chrono>
#include <iterator>
#include <random>

#include "tests/e2e/CommandTest.h"
#include "tests/e2e/HeldLock.h"

namespace e2e {
namespace {

using Moment = Counterpart::Moment;
using testing::HasSubstr;

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

class CommandSignalTest : public CommandTest {
 protected:
  // Signs in; all tokens are due at once.
  void signInWithTokensThatAreAlwaysDue() {
    counterpart.setAccessTokenSeconds(side(), 60);
    ASSERT_NO_FATAL_FAILURE(signIn());
  }

  static void expectDeathBy(int number, support::ChildProcess& command, double seconds = 60) {
    EXPECT_EQ(command.wait(seconds), 128 + number) << command.error();
    EXPECT_EQ(command.output(), "");
  }

  void expectTheRecordToBeUsable() {
    const Result result = token();
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_NE(result.output, "");
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandSignalTest, testing::Values("Google"));

TEST_P(CommandSignalTest, WaitingForTheLockEndsByTheSignalAtOnce) {
  ASSERT_NO_FATAL_FAILURE(signInWithTokensThatAreAlwaysDue());
  const Records before = records();
  for (const int number : kSignals) {
    SCOPED_TRACE(number);
    const HeldLock lock(folder.file("run/qvr-oauth2"));
    const auto command = start(tokenCommand({"--verbose"}));
    EXPECT_TRUE(command->waitForError("waiting for the account's lock")) << command->error();
    command->signal(number);
    expectDeathBy(number, *command);
  }
  EXPECT_EQ(records(), before);
  EXPECT_EQ(refreshes(), 0);
  expectTheRecordToBeUsable();
}

// The server has rotated the refresh token: what the command holds is worth nothing any more.
TEST_P(CommandSignalTest, ARefreshThatIsUnderWayIsFinishedAndStoredFirst) {
  ASSERT_NO_FATAL_FAILURE(signInWithTokensThatAreAlwaysDue());
  for (const int number : kSignals) {
    SCOPED_TRACE(number);
    const Records before = records();
    const auto command = startHeld(Moment::kAfterTheAnswer);
    command->signal(number);
    EXPECT_TRUE(command->waitForError("Waiting up to 5 s")) << command->error();
    counterpart.release(side());
    expectDeathBy(number, *command);
    EXPECT_NE(records(), before) << "the new token was stored";
    expectTheRecordToBeUsable();
  }
}

TEST_P(CommandSignalTest, ASecondSignalEndsItAtOnce) {
  ASSERT_NO_FATAL_FAILURE(signInWithTokensThatAreAlwaysDue());
  int held = 0;
  for (const int number : kSignals) {
    SCOPED_TRACE(number);
    const Records before = records();
    const auto command = startHeld(Moment::kBeforeTheAnswer, held++);
    command->signal(number);
    EXPECT_TRUE(command->waitForError("a second signal ends at once")) << command->error();
    const auto start = std::chrono::steady_clock::now();
    command->signal(number);
    expectDeathBy(number, *command);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    EXPECT_EQ(records(), before);
  }
}

TEST_P(CommandSignalTest, AnAnswerThatDoesNotComeIsNotWaitedForMuchLonger) {
  ASSERT_NO_FATAL_FAILURE(signInWithTokensThatAreAlwaysDue());
  const Records before = records();
  const auto command = startHeld(Moment::kBeforeTheAnswer);
  const auto start = std::chrono::steady_clock::now();
  command->signal(SIGTERM);
  expectDeathBy(SIGTERM, *command);
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  EXPECT_GT(passed.count(), 4);
  EXPECT_LT(passed.count(), 20);
  EXPECT_EQ(records(), before);
}

// The answer is there or not, stored or not, printed or not: whatever the moment, the next command
// has a token to serve.
TEST_P(CommandSignalTest, NoMomentOfASignalCostsTheRecord) {
  ASSERT_NO_FATAL_FAILURE(signInWithTokensThatAreAlwaysDue());
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  expectTheRecordToBeUsable();
  const double whole = std::chrono::duration<double>(Clock::now() - start).count();
  std::mt19937 random(20260101);
  std::uniform_real_distribution<double> moment(0, 1.2 * whole);
  int cut = 0;
  for (int i = 0; i < 45; ++i) {
    const int number = kSignals[static_cast<std::size_t>(i) % std::size(kSignals)];
    const double seconds = moment(random);
    SCOPED_TRACE("signal " + std::to_string(number) + " after " + std::to_string(seconds) + " s");
    const auto command = this->start(tokenCommand());
    int status = command->wait(seconds);
    if (status < 0) {
      command->signal(number);
      status = command->wait();
    }
    EXPECT_THAT(status, testing::AnyOf(0, 128 + number)) << command->error();
    EXPECT_TRUE(status != 0 || !command->output().empty());
    cut += status != 0;
    expectTheRecordToBeUsable();
  }
  EXPECT_GT(cut, 0) << "the moments were before the end of the command";
}

}  // namespace
}  // namespace e2e
