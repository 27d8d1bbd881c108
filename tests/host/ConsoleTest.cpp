// The streams, and what is kept out of them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "host/Console.h"
#include "host/Secrets.h"
#include "host/Wait.h"
#include "tests/host/CommandTest.h"

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

// Standard input read from a text, for a scope.
class Input {
 public:
  explicit Input(const std::string& text) : saved_(dup(STDIN_FILENO)) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
  }
  ~Input() {
    dup2(saved_, STDIN_FILENO);
    close(saved_);
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

 private:
  const int saved_;
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
