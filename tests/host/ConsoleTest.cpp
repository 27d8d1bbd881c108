// The streams, and what is kept out of them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "host/Console.h"
#include "host/Secrets.h"
#include "host/Wait.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/host/SignInFixture.h"

namespace host_test {
namespace {

TEST(Printable, ReplacesControlCharactersAndLeavesTextAlone) {
  EXPECT_EQ(host::printable("caf\u00e9 \u20ac \"quoted\" ~"), "caf\u00e9 \u20ac \"quoted\" ~");
  EXPECT_EQ(host::printable("a\nb\tc\r"), "a?b?c?");
  EXPECT_EQ(host::printable("\x1b[2J\x7f"), "?[2J?");
  EXPECT_EQ(host::printable("\u009b31m"), "?31m");
  EXPECT_EQ(host::printable(std::string("\0", 1)), "?");
  EXPECT_EQ(host::printable("\xc2"), "\xc2");
  EXPECT_EQ(host::printable(""), "");
}

TEST(Secrets, AreTakenOutOfWhatIsSaidButNotOutOfResults) {
  host::keepSecret("a-long-secret");
  const Printed printed = collect([] {
    host::say("before a-long-secret after a-long-secret");
    return host::writeOut("a-long-secret\n") ? 0 : 1;
  });
  EXPECT_EQ(printed.error, "qvr-oauth2: before {length = 13} after {length = 13}\n");
  EXPECT_EQ(printed.output, "a-long-secret\n");
}

TEST(Secrets, AreTakenOutWholeWhenOneIsPartOfAnother) {
  host::keepSecret("part-of-it");
  host::keepSecret("part-of-it-and-more");
  EXPECT_EQ(host::withoutSecrets("part-of-it-and-more, part-of-it"),
            "{length = 19}, {length = 10}");
}

TEST(Secrets, AreTakenOutPercentEncodedToo) {
  host::keepSecret("4/0A=secret code");
  EXPECT_EQ(
      host::withoutSecrets("a 4/0A=secret code, 4%2F0A%3Dsecret%20code, 4%2f0A%3dsecret%20code"),
      "a {length = 16}, {length = 22}, {length = 22}");
}

TEST(Secrets, ThatAreTooShortToTellFromWordsAreNotKept) {
  host::keepSecret("");
  host::keepSecret("refresh");
  EXPECT_EQ(host::withoutSecrets("No refresh was sent."), "No refresh was sent.");
}

TEST(Console, ReportsAFailureAndReturnsItsStatus) {
  const Printed printed = collect([] { return host::report({host::kTryAgainLater, "Later\n."}); });
  EXPECT_EQ(printed.status, host::kTryAgainLater);
  EXPECT_EQ(printed.error, "qvr-oauth2: Later?.\n");
  EXPECT_EQ(printed.output, "");
}

// A standard stream at another descriptor, for a scope.
class Redirected {
 public:
  Redirected(int stream, int descriptor) : stream_(stream), saved_(dup(stream)) {
    EXPECT_EQ(dup2(descriptor, stream), stream);
  }
  ~Redirected() {
    dup2(saved_, stream_);
    close(saved_);
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;

 private:
  const int stream_;
  const int saved_;
};

// Standard input read from a text, for a scope.
class Input {
 public:
  explicit Input(const std::string& text) {
    pipe_.write(text);
    pipe_.writeEnd.close();
  }

 private:
  host::Pipe pipe_;
  const Redirected input_{STDIN_FILENO, pipe_.readEnd.number()};
};

TEST(Console, ReadsLineByLineAndNothingBehindALine) {
  const Input input("one\n\nthree\nrest");
  EXPECT_EQ(host::readLine(), "one");
  EXPECT_EQ(host::readLine(), "");
  EXPECT_EQ(host::readLine(), "three");
  char rest[8] = {};
  EXPECT_EQ(read(STDIN_FILENO, rest, sizeof rest), 4);
  EXPECT_EQ(host::readLine(), std::nullopt);
}

TEST(Console, TakesALastLineWithoutANewline) {
  const Input input("last");
  EXPECT_EQ(host::readLine(), "last");
  EXPECT_EQ(host::readLine(), std::nullopt);
}

TEST(Console, KnowsThatAPipeIsNoTerminal) {
  const Input input("");
  EXPECT_FALSE(host::isTerminal(STDIN_FILENO));
}

TEST(Console, WritesAllOfALongTextToAStreamThatBlocks) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const int saved = dup(STDERR_FILENO);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  ASSERT_EQ(fcntl(ends[0], F_SETFL, 0), 0);  // only the writer's end does not wait
  const std::string text(1024 * 1024, 'x');
  std::size_t length = 0;
  std::thread reader([&] {
    char buffer[4096];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
      length += static_cast<std::size_t>(count);
    }
  });
  const bool written = host::writeError(text);
  dup2(saved, STDERR_FILENO);
  close(saved);
  reader.join();
  close(ends[0]);
  EXPECT_TRUE(written);
  EXPECT_EQ(length, text.size());
}

// Fills the pipe to the last byte.
void fill(const host::Pipe& pipe, int flags) {
  ASSERT_EQ(fcntl(pipe.writeEnd.number(), F_SETFL, O_NONBLOCK), 0);
  while (write(pipe.writeEnd.number(), "x", 1) == 1) {
  }
  ASSERT_EQ(errno, EAGAIN);
  ASSERT_EQ(fcntl(pipe.writeEnd.number(), F_SETFL, flags), 0);
}

TEST(Console, GivesUpOnAFullPipeThatNobodyReads) {
  for (const int flags : {0, O_NONBLOCK}) {
    const host::Pipe pipe;
    fill(pipe, flags);
    const ScopedDeadline deadline(0.02);
    bool isWritten = true;
    bool isSaid = true;
    {
      const Redirected output(STDOUT_FILENO, pipe.writeEnd.number());
      isWritten = host::writeOut("text\n");
    }
    {
      const Redirected error(STDERR_FILENO, pipe.writeEnd.number());
      isSaid = host::writeError("text\n");
      host::step("which is not shown");
      host::report({host::kFailed, "Nobody reads this."});
    }
    EXPECT_FALSE(isWritten) << flags;
    EXPECT_FALSE(isSaid) << flags;
    EXPECT_FALSE(host::canWrite(pipe.writeEnd.number())) << flags;
    EXPECT_TRUE(deadline.endedSoon()) << flags;
  }
}

TEST(Console, GivesUpOnAPipeThatFillsMeanwhile) {
  const host::Pipe pipe;
  const ScopedDeadline deadline(0.02);
  EXPECT_FALSE(host::writeAll(pipe.writeEnd.number(), std::string(1024 * 1024, 'x')));
  EXPECT_TRUE(deadline.endedSoon());
}

TEST(Console, GivesUpOnATerminalThatWasStopped) {
  int master = -1;
  int slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const host::Descriptor screen(master);
  const host::Descriptor terminal(slave);
  ASSERT_EQ(tcflow(slave, TCOOFF), 0);
  const ScopedDeadline deadline(0.02);
  EXPECT_FALSE(host::writeAll(slave, "text"));
  EXPECT_TRUE(deadline.endedSoon());
}

TEST(Console, WritesAllOfALongTextToAPipeThatIsReadLate) {
  host::Pipe pipe;
  fill(pipe, 0);
  const std::string text(200'000, 'y');
  std::thread writer([&] {
    EXPECT_TRUE(host::writeAll(pipe.writeEnd.number(), text));
    pipe.writeEnd.close();
  });
  std::string read;
  char buffer[4096];
  for (ssize_t count; (count = ::read(pipe.readEnd.number(), buffer, sizeof buffer)) > 0;)
    read.append(buffer, static_cast<std::size_t>(count));
  writer.join();
  EXPECT_EQ(read.substr(read.find('y')), text);
}

TEST(Console, WritesWhatFitsAfterTheCommandsTimeIsOver) {
  host::Pipe pipe;
  {
    const ScopedDeadline deadline(-1);
    EXPECT_TRUE(host::writeAll(pipe.writeEnd.number(), "The time is over.\n"));
  }
  EXPECT_EQ(pipe.readAll(), "The time is over.\n");
}

TEST(Console, TellsAClosedPipeAndAFullDisk) {
  host::Pipe pipe;
  pipe.readEnd.close();
  const auto previous = signal(SIGPIPE, SIG_IGN);
  EXPECT_FALSE(host::writeAll(pipe.writeEnd.number(), "text"));
  signal(SIGPIPE, previous);
  const host::Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(full);
  EXPECT_FALSE(host::writeAll(full.number(), "text"));
  const host::Descriptor readOnly(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(host::writeAll(readOnly.number(), "text"));
  EXPECT_FALSE(host::writeAll(-1, "text"));
}

TEST(Console, WaitsForALineNoLongerThanTheCommandsTime) {
  const host::Pipe pipe;
  pipe.write("half a line");
  const ScopedDeadline deadline(0.02);
  const Redirected input(STDIN_FILENO, pipe.readEnd.number());
  EXPECT_EQ(host::readLine(), std::nullopt);
  EXPECT_TRUE(deadline.endedSoon());
}

TEST(Outcome, HandsTheFirstValueOver) {
  const host::Outcome<int> outcome;
  std::thread handler([outcome] {
    outcome.deliver(1);
    outcome.deliver(2);
  });
  EXPECT_EQ(outcome.wait(30), 1);
  handler.join();
}

TEST(Outcome, TakesAValueThatCameBefore) {
  const host::Outcome<int> outcome;
  outcome.deliver(1);
  EXPECT_EQ(outcome.wait(0), 1);
}

TEST(Outcome, GivesUpAtTheDeadlineAndALateHandlerFindsItAlive) {
  std::function<void()> late;
  {
    const host::Outcome<std::string> outcome;
    late = [outcome] { outcome.deliver("late"); };
    EXPECT_EQ(outcome.wait(0.01), std::nullopt);
  }
  late();
}

}  // namespace
}  // namespace host_test
