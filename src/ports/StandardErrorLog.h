// The log writer behind makeStandardErrorLog.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Ports.h"

namespace qvr {

// Who writes a line, and when.
struct LogStamp {
  std::chrono::system_clock::time_point time;
  std::string_view process;
  pid_t processIdentifier = 0;
  pid_t threadIdentifier = 0;
};

// `date process[pid:tid] text` with a newline, the date in local time with its offset from UTC. A
// control character of the text becomes a space: what a server sent can neither start a line of its
// own nor steer the terminal.
std::string formattedLogLine(const LogStamp& stamp, std::string_view text);

// Writes each line to the descriptor in one go. A line that cannot be written is dropped, and errno
// is left as it was.
LogSink makeDescriptorLog(int descriptor);

}  // namespace qvr
