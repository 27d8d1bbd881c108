#include "host/Deadline.h"

#include <algorithm>
#include <atomic>
#include <limits>

namespace host {
namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

std::atomic<double> deadline = kNever;  // in seconds of the steady clock

double steadyNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

void setDeadline(double seconds) {
  deadline = steadyNow() + seconds;
}

void clearDeadline() {
  deadline = kNever;
}

double secondsLeft(double limit) {
  return std::clamp(deadline - steadyNow(), 0.0, limit);
}

std::chrono::milliseconds timeLeft(std::chrono::milliseconds limit) {
  const std::chrono::duration<double> left(
      secondsLeft(std::chrono::duration<double>(limit).count()));
  return std::chrono::ceil<std::chrono::milliseconds>(left);
}

}  // namespace host
