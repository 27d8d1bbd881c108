// Lines that the user pastes while a sign-in waits.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/WithoutEcho.h"

namespace host {

class PastedLines {
 public:
  // Reads from the descriptor, which stays the caller's. A terminal does not show what is pasted:
  // it holds a code, and would disturb the progress line. A terminal that another job uses is left
  // alone.
  explicit PastedLines(int descriptor);

  // For poll(); -1 once there is nothing more to come.
  int descriptor() const { return descriptor_; }

  // Takes what can be read, which does not block after poll(): the lines that are complete, without
  // the white space around them and without empty ones. The last one needs no newline.
  std::vector<std::string> take();

 private:
  int descriptor_;
  std::optional<WithoutEcho> silence_;
  std::string received_;
};

}  // namespace host
