// Loaded before a program's libraries, it moves the program's clock by QVR_CLOCK_SHIFT seconds: the
// time of day alone, since a wait is measured by the steady clock, which nobody can set.
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace {

time_t shift() {
  const char* const text = std::getenv("QVR_CLOCK_SHIFT");
  return text != nullptr ? std::strtol(text, nullptr, 10) : 0;
}

bool isTimeOfDay(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

}  // namespace

#define QVR_REPLACES extern "C" __attribute__((visibility("default")))

QVR_REPLACES int clock_gettime(clockid_t clock, timespec* result) noexcept {
  const long status = syscall(SYS_clock_gettime, clock, result);
  if (status == 0 && isTimeOfDay(clock)) result->tv_sec += shift();
  return static_cast<int>(status);
}

QVR_REPLACES int gettimeofday(timeval* result, void*) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *result = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

QVR_REPLACES time_t time(time_t* result) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}
