#include "src/ports/BusWatch.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <cstdint>

#include "src/ports/BusLibrary.h"

namespace qvr {

namespace {

const BusLibrary& library() {
  return BusLibrary::shared();
}

constexpr std::uint64_t kNever = UINT64_MAX;
constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;

// When the bus wants to be called though its socket is quiet: microseconds of the monotonic clock.
std::uint64_t dueTime(sd_bus* bus) {
  std::uint64_t due = kNever;
  return library().sd_bus_get_timeout(bus, &due) < 0 ? kNever : due;
}

// The form of a timer; zero would be none, so that a nanosecond is added.
itimerspec timerFor(std::uint64_t due) {
  itimerspec timer{};
  if (due == kNever) return timer;
  timer.it_value.tv_sec = static_cast<time_t>(due / kMicrosecondsPerSecond);
  timer.it_value.tv_nsec = static_cast<long>(due % kMicrosecondsPerSecond * 1000 + 1);
  return timer;
}

epoll_event reading(int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return event;
}

bool watchForReading(const FileDescriptor& epoll, int descriptor) {
  epoll_event event = reading(descriptor);
  return epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

BusWatch::BusWatch(sd_bus* bus)
    : bus_(bus),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {}

std::unique_ptr<BusWatch> BusWatch::make(sd_bus* bus) {
  std::unique_ptr<BusWatch> watch(new BusWatch(bus));
  return watch->start() ? std::move(watch) : nullptr;
}

bool BusWatch::start() {
  if (!epoll_ || !timer_ || !watchForReading(epoll_, timer_.get()) ||
      !watchForReading(epoll_, library().sd_bus_get_fd(bus_))) {
    return false;
  }
  update(false);
  return true;
}

// A lost bus has no socket any more; then there is nothing left to watch.
void BusWatch::update(bool isDue) {
  const int socket = library().sd_bus_get_fd(bus_);
  const int events = library().sd_bus_get_events(bus_);
  if (socket >= 0 && events >= 0) {
    epoll_event event = reading(socket);
    if ((events & POLLOUT) != 0) event.events |= EPOLLOUT;
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, socket, &event);
  }
  const itimerspec timer = timerFor(isDue ? 0 : dueTime(bus_));
  timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &timer, nullptr);
}

}  // namespace qvr
