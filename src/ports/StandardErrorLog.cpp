#include "src/ports/StandardErrorLog.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

namespace qvr {

namespace {

// "2026-11-21 18:34:00.207189+0000"
std::string formattedTime(std::chrono::system_clock::time_point time) {
  using std::chrono::microseconds;
  using std::chrono::seconds;
  const auto second = std::chrono::floor<seconds>(time);
  const auto fraction = std::chrono::floor<microseconds>(time - second).count();
  const time_t unixTime = std::chrono::system_clock::to_time_t(second);
  tm local{};
  localtime_r(&unixTime, &local);

  std::array<char, 32> date;
  std::array<char, 32> offset;
  std::array<char, 16> digits;
  const std::size_t dateLength = strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
  const std::size_t offsetLength = strftime(offset.data(), offset.size(), "%z", &local);
  std::snprintf(digits.data(), digits.size(), ".%06u", static_cast<unsigned>(fraction));
  return std::string(date.data(), dateLength) + digits.data() +
         std::string(offset.data(), offsetLength);
}

bool isControl(char character) {
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7f;
}

// A reader that went away, or a full disk, must not stop the library.
void writeOrDrop(int descriptor, std::string_view line) {
  while (!line.empty()) {
    const ssize_t count = write(descriptor, line.data(), line.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

std::string formattedLogLine(const LogStamp& stamp, std::string_view text) {
  std::string line = formattedTime(stamp.time);
  line.append(" ").append(stamp.process);
  line.append("[").append(std::to_string(stamp.processIdentifier));
  line.append(":").append(std::to_string(stamp.threadIdentifier)).append("] ").append(text);
  std::replace_if(line.begin(), line.end(), isControl, ' ');
  return line + "\n";
}

LogSink makeDescriptorLog(int descriptor) {
  return [descriptor](std::string_view text) {
    const int savedErrno = errno;
    const LogStamp stamp{std::chrono::system_clock::now(), program_invocation_short_name, getpid(),
                         gettid()};
    writeOrDrop(descriptor, formattedLogLine(stamp, text));
    errno = savedErrno;
  };
}

inline namespace v1 {

LogSink makeStandardErrorLog() {
  return makeDescriptorLog(STDERR_FILENO);
}

}  // namespace v1
}  // namespace qvr
