#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "host/Progress.h"
#include "tests/host/ScopedVariable.h"
#include "tests/host/SignInFixture.h"

namespace host {

namespace {

TEST(ProgressTest, TimeIsShownInMinutesAndSeconds) {
  EXPECT_EQ(waitingText(300), "Waiting for the browser, 5:00 left. Ctrl-C cancels.");
  EXPECT_EQ(waitingText(271.2), "Waiting for the browser, 4:32 left. Ctrl-C cancels.");
  EXPECT_EQ(waitingText(0.1), "Waiting for the browser, 0:01 left. Ctrl-C cancels.");
  EXPECT_EQ(waitingText(-5), "Waiting for the browser, 0:00 left. Ctrl-C cancels.");
  EXPECT_EQ(waitingText(86400), "Waiting for the browser, 1440:00 left. Ctrl-C cancels.");
}

TEST(ProgressTest, LineIsDrawnFromTheFirstColumn) {
  EXPECT_EQ(drawnOver(0, "abc", 80), "\rabc");
  EXPECT_EQ(drawnOver(3, "abc", 80), "\rabc");
}

TEST(ProgressTest, LeftOverOfALongerLineIsWipedOut) {
  EXPECT_EQ(drawnOver(5, "abc", 80), "\rabc  \rabc");
  EXPECT_EQ(drawnOver(3, "", 80), "\r   \r");
}

TEST(ProgressTest, LineNeverReachesTheLastColumn) {
  EXPECT_EQ(drawnOver(0, "abcdef", 4), "\rabc");
}

TEST(ProgressTest, NothingIsDrawnWhereThereIsNoTerminal) {
  Pipe pipe;
  {
    ProgressLine line(pipe.writeEnd.number());
    EXPECT_FALSE(line.isVisible());
    line.show("abc");
    line.clear();
  }
  EXPECT_EQ(pipe.readAll(), "");
}

TEST(ProgressTest, TerminalGetsTheLineAndAnEmptyOneAtTheEnd) {
  const host_test::ScopedVariable kind("TERM", "xterm");
  int master = -1;
  int slave = -1;
  winsize size{};
  size.ws_col = 10;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
  const Descriptor screen(master);
  const Descriptor terminal(slave);
  {
    ProgressLine line(slave);
    EXPECT_TRUE(line.isVisible());
    line.show("abc");
    line.show("longer than the terminal");
  }
  const std::string expected = "\rabc\rlonger th\r         \r";
  std::string drawn;
  pollfd arrival{master, POLLIN, 0};
  while (drawn.size() < expected.size() && poll(&arrival, 1, 10'000) > 0) {  // in parts, perhaps
    char buffer[256];
    const ssize_t length = read(master, buffer, sizeof buffer);
    ASSERT_GT(length, 0);
    drawn.append(buffer, static_cast<std::size_t>(length));
  }
  EXPECT_EQ(drawn, expected);
}

TEST(ProgressTest, TerminalThatWasStoppedIsNotWaitedFor) {
  const host_test::ScopedVariable kind("TERM", "xterm");
  int master = -1;
  int slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const Descriptor screen(master);
  const Descriptor terminal(slave);
  ASSERT_EQ(tcflow(slave, TCOOFF), 0);
  ProgressLine line(slave);
  EXPECT_TRUE(line.isVisible());
  line.show("abc");
  pollfd arrival{master, POLLIN, 0};
  EXPECT_EQ(poll(&arrival, 1, 0), 0);
}

}  // namespace

}  // namespace host
