// What the command line sets for the whole process, for a scope of a test.
#pragma once

#include <chrono>

#include "host/Deadline.h"
#include "host/Steps.h"

namespace host_test {

// The command's time, as --timeout gives it. Whether a wait kept to it, endedSoon() tells.
class ScopedDeadline {
 public:
  explicit ScopedDeadline(double seconds) { host::setDeadline(seconds); }
  ~ScopedDeadline() { host::clearDeadline(); }
  ScopedDeadline(const ScopedDeadline&) = delete;
  ScopedDeadline& operator=(const ScopedDeadline&) = delete;

  // True when little time has passed: far less than any wait of the command's lasts by itself.
  bool endedSoon() const {
    return std::chrono::steady_clock::now() - start_ < std::chrono::seconds(5);
  }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Steps are shown, as by --verbose.
class ScopedSteps {
 public:
  ScopedSteps() { host::showSteps(true); }
  ~ScopedSteps() { host::showSteps(false); }
  ScopedSteps(const ScopedSteps&) = delete;
  ScopedSteps& operator=(const ScopedSteps&) = delete;
};

}  // namespace host_test
