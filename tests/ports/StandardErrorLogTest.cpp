#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "src/ports/FileCalls.h"
#include "src/ports/StandardErrorLog.h"

namespace ports_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

// 2026-11-21 18:34:00.207189 UTC.
constexpr std::chrono::system_clock::time_point kMoment{
    std::chrono::microseconds(1795286040207189)};

// The time zone of this process, for a scope.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* const before = getenv("TZ")) before_ = before;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~TimeZone() {
    before_ ? setenv("TZ", before_->c_str(), 1) : unsetenv("TZ");
    tzset();
  }

 private:
  std::optional<std::string> before_;
};

TEST(StandardErrorLogTest, LineHasTheDateTheProcessAndTheText) {
  const TimeZone zone("UTC");
  EXPECT_EQ(qvr::formattedLogLine({kMoment, "mailer", 12, 345}, "error: \"x\""),
            "2026-11-21 18:34:00.207189+0000 mailer[12:345] error: \"x\"\n");
}

TEST(StandardErrorLogTest, DateIsLocalWithItsOffset) {
  const TimeZone zone("XST-05:30");
  EXPECT_EQ(qvr::formattedLogLine({kMoment, "m", 1, 2}, "t"),
            "2026-11-22 00:04:00.207189+0530 m[1:2] t\n");
}

TEST(StandardErrorLogTest, FractionHasSixDigitsAlsoBeforeTheEpoch) {
  const TimeZone zone("UTC");
  const std::chrono::system_clock::time_point moments[] = {
      std::chrono::system_clock::time_point(std::chrono::microseconds(7)),
      std::chrono::system_clock::time_point(std::chrono::microseconds(-1))};
  EXPECT_EQ(qvr::formattedLogLine({moments[0], "m", 1, 2}, ""),
            "1970-01-01 00:00:00.000007+0000 m[1:2] \n");
  EXPECT_EQ(qvr::formattedLogLine({moments[1], "m", 1, 2}, ""),
            "1969-12-31 23:59:59.999999+0000 m[1:2] \n");
}

TEST(StandardErrorLogTest, TextNeitherStartsALineNorSteersTheTerminal) {
  const std::string line = qvr::formattedLogLine({kMoment, "na\nme", 1, 2},
                                                 std::string_view("a\nb\r\nc\x1b[2J\x7f\0d é", 16));
  EXPECT_THAT(line, HasSubstr("na me[1:2] a b  c [2J  d é\n"));
}

// A pipe with a writer to log to.
struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    reader = qvr::FileDescriptor(ends[0]);
    writer = qvr::FileDescriptor(ends[1]);
  }
  std::string content() const {
    std::string text(60000, '\0');
    const ssize_t count = read(reader.get(), text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }
  qvr::FileDescriptor reader;
  qvr::FileDescriptor writer;
};

TEST(StandardErrorLogTest, WritesALineWithTheProcessAndThreadThatLog) {
  const Pipe pipe;
  qvr::makeDescriptorLog(pipe.writer.get())("hello");
  EXPECT_THAT(
      pipe.content(),
      MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{6}[+-][0-9]{4} [^ ]+\\[" +
                   std::to_string(getpid()) + ":" + std::to_string(gettid()) + "\\] hello\n"));
}

TEST(StandardErrorLogTest, LinesOfThreadsDoNotMix) {
  const Pipe pipe;
  const qvr::LogSink log = qvr::makeDescriptorLog(pipe.writer.get());
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([&log, letter] {
      for (int turn = 0; turn < 20; ++turn)
        log(std::string(100, letter));
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  const std::string content = pipe.content();
  EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 80);
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    const std::string line = "] " + std::string(100, letter) + "\n";
    int found = 0;
    for (std::size_t at = content.find(line); at != std::string::npos;
         at = content.find(line, at + 1)) {
      ++found;
    }
    EXPECT_EQ(found, 20);
  }
}

TEST(StandardErrorLogTest, LineThatCannotBeWrittenIsDroppedAndErrnoKept) {
  signal(SIGPIPE, SIG_IGN);
  Pipe closed;
  closed.reader = qvr::FileDescriptor();
  Pipe full;
  const std::array<char, 4096> block{};
  while (write(full.writer.get(), block.data(), block.size()) > 0) {
  }
  for (const int descriptor : {closed.writer.get(), full.writer.get(), -1}) {
    errno = ENOENT;
    qvr::makeDescriptorLog(descriptor)("lost");
    EXPECT_EQ(errno, ENOENT);
  }
}

TEST(StandardErrorLogTest, StandardErrorIsWhereItGoes) {
  testing::internal::CaptureStderr();
  qvr::makeStandardErrorLog()("to standard error");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("] to standard error\n"));
}

TEST(SystemClockTest, CountsSecondsFromTheReferenceDate) {
  const double before = static_cast<double>(time(nullptr)) - 978307200.0;
  const double now = qvr::makeSystemClock()().timeIntervalSinceReferenceDate;
  EXPECT_GE(now, before);
  EXPECT_LT(now, before + 60);
}

}  // namespace
}  // namespace ports_test
