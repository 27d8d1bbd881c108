#include "host/SignalledOutcome.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <iterator>

#include "host/Deadline.h"

namespace host {

Event waitForEvent(int arrival, int signals, double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(secondsLeft(seconds));
  pollfd sources[] = {{arrival, POLLIN, 0}, {signals, POLLIN, 0}};
  for (;;) {
    const std::chrono::duration<double, std::milli> left = end - Clock::now();
    const int ready = poll(sources, std::size(sources),
                           left.count() > 0 ? static_cast<int>(std::ceil(left.count())) : 0);
    if (ready > 0) return sources[0].revents != 0 ? Event::kAnswer : Event::kSignal;
    if (ready == 0 || errno != EINTR) return Event::kDeadline;
  }
}

}  // namespace host
