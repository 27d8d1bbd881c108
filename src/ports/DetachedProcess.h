// A program that is started to go its own way.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace qvr {

struct ProcessCommand {
  std::string program;                   // a path
  std::vector<std::string> arguments;    // the first is the program's name for itself
  std::vector<std::string> environment;  // NAME=value
};

// Starts the program in a session of its own, with no descriptor of this process and nothing on its
// standard streams. True when it started and did not fail (end by a signal or with a status other
// than 0) within `patience`; blocks until it ends, at most that long. It is reaped whenever it
// ends.
bool runDetached(const ProcessCommand& command, std::chrono::milliseconds patience);

}  // namespace qvr
