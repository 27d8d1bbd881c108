#include <fcntl.h>
#include <pty.h>
#include <termios.h>

#include <csignal>

#include "host/SignInInput.h"
#include "host/Signals.h"
#include "tests/host/SignInFixture.h"

namespace host {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SignInInputTest, LinesComeTrimmedAndWithoutEmptyOnes) {
  const Pipe pipe;
  PastedLines input(pipe.readEnd.number());
  pipe.write("  one \r\n\n \t\ntwo\nthr");
  EXPECT_THAT(input.take(), ElementsAre("one", "two"));
  pipe.write("ee\n");
  EXPECT_THAT(input.take(), ElementsAre("three"));
}

TEST(SignInInputTest, EndOfInputCompletesTheLastLineAndEndsTheReading) {
  Pipe pipe;
  PastedLines input(pipe.readEnd.number());
  pipe.write("last");
  pipe.writeEnd.close();
  EXPECT_THAT(input.take(), IsEmpty());
  EXPECT_THAT(input.take(), ElementsAre("last"));
  EXPECT_EQ(input.descriptor(), -1);
}

TEST(SignInInputTest, ClosedInputIsTheEndOfInput) {
  Pipe pipe;
  const int number = pipe.readEnd.number();
  pipe.readEnd.close();
  PastedLines input(number);
  EXPECT_THAT(input.take(), IsEmpty());
  EXPECT_EQ(input.descriptor(), -1);
}

TEST(SignInInputTest, LineLongerThanAnyRedirectIsForgotten) {
  const Pipe pipe;
  PastedLines input(pipe.readEnd.number());
  const std::string chunk(16384, 'x');
  for (std::size_t sent = 0; sent <= kMaximumRedirectSize; sent += chunk.size()) {
    pipe.write(chunk);
    ASSERT_THAT(input.take(), IsEmpty());
  }
  pipe.write("\nnext\n");
  EXPECT_THAT(input.take(), ElementsAre("next"));
}

bool hasEcho(int terminal) {
  termios settings{};
  EXPECT_EQ(tcgetattr(terminal, &settings), 0);
  return (settings.c_lflag & ECHO) != 0;
}

TEST(SignInInputTest, TerminalDoesNotShowWhatIsPasted) {
  int master = -1;
  int slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const Descriptor keyboard(master);
  const Descriptor terminal(slave);
  ASSERT_TRUE(hasEcho(slave));
  {
    PastedLines input(slave);
    EXPECT_FALSE(hasEcho(slave));
    ASSERT_EQ(write(master, "pasted\n", 7), 7);
    EXPECT_THAT(input.take(), ElementsAre("pasted"));
  }
  EXPECT_TRUE(hasEcho(slave));
}

TEST(SignInSignalsTest, BlockedSignalIsReadFromTheWatch) {
  blockTerminationSignals();
  const SignalWatch watch;
  EXPECT_EQ(takeSignal(watch.fileDescriptor()), 0);
  ASSERT_EQ(pthread_kill(pthread_self(), SIGTERM), 0);
  EXPECT_EQ(takeSignal(watch.fileDescriptor()), SIGTERM);
  EXPECT_EQ(takeSignal(watch.fileDescriptor()), 0);
}

TEST(SignInSignalsDeathTest, SignalsEndTheProcessWhereTheyAreAllowedTo) {
  blockTerminationSignals();
  EXPECT_EXIT(
      {
        const TerminationAllowed allowed;
        raise(SIGINT);
        _exit(0);
      },
      testing::KilledBySignal(SIGINT), "");
}

TEST(SignInSignalsTest, SignalsAreBlockedAgainAfterwards) {
  blockTerminationSignals();
  { const TerminationAllowed allowed; }
  const SignalWatch watch;
  ASSERT_EQ(pthread_kill(pthread_self(), SIGHUP), 0);
  EXPECT_EQ(takeSignal(watch.fileDescriptor()), SIGHUP);
}

}  // namespace

}  // namespace host
