// The seconds of an option, as a time to wait.
#pragma once

#include <algorithm>
#include <chrono>

namespace qvr {

// Rounded up, and no longer than a day: a host may ask for more than a clock can count. What is no
// number is no time.
inline std::chrono::milliseconds millisecondsOf(double seconds) {
  constexpr double kDay = 24 * 60 * 60;
  const double wait = seconds > 0 ? std::min(seconds, kDay) : 0;
  return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(wait));
}

}  // namespace qvr
