#include "host/Deadline.h"

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>

namespace host {
namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

std::atomic<double> commandDeadline = kNever;  // in seconds of the steady clock

double steadyNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

void setDeadline(double seconds) {
  commandDeadline = steadyNow() + seconds;
}

void clearDeadline() {
  commandDeadline = kNever;
}

void allowAtLeast(double seconds) {
  commandDeadline = std::max<double>(commandDeadline, steadyNow() + seconds);
}

double secondsLeft(double limit) {
  return std::clamp(commandDeadline - steadyNow(), 0.0, limit);
}

bool isTimeLeft() {
  return secondsLeft(1) > 0;
}

std::chrono::milliseconds timeLeft(std::chrono::milliseconds limit) {
  const std::chrono::duration<double> left(
      secondsLeft(std::chrono::duration<double>(limit).count()));
  return std::chrono::ceil<std::chrono::milliseconds>(left);
}

std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds limit) {
  return std::chrono::steady_clock::now() + timeLeft(limit);
}

bool isReadyBefore(std::chrono::steady_clock::time_point deadline, int descriptor, short event) {
  if (descriptor < 0) return true;  // which poll() would pass over
  pollfd source{descriptor, event, 0};
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    const int ready = poll(&source, 1, static_cast<int>(std::max<long long>(left.count(), 0)));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

}  // namespace host
