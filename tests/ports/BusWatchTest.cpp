// The descriptor that stands for a bus connection, on a connection whose other end the test holds.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <string>

#include "src/ports/BusConnection.h"
#include "src/ports/BusWatch.h"

namespace ports_test {
namespace {

constexpr int kDeadline = 30'000;

bool isReadable(int descriptor, int timeout) {
  pollfd watched{descriptor, POLLIN, 0};
  return poll(&watched, 1, timeout) == 1;
}

using Bus = std::unique_ptr<sd_bus, qvr::BusUnref>;

Bus makeBus(int socket) {
  sd_bus* bus = nullptr;
  EXPECT_GE(sd_bus_new(&bus), 0);
  EXPECT_GE(sd_bus_set_fd(bus, socket, socket), 0);
  EXPECT_GE(sd_bus_set_anonymous(bus, 1), 0);
  return Bus(bus);
}

int ignore(sd_bus_message*, void*, sd_bus_error*) {
  return 0;
}

class BusWatchTest : public testing::Test {
 protected:
  BusWatchTest() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    near = makeBus(ends[0]);
    far = makeBus(ends[1]);
    EXPECT_GE(sd_bus_set_server(far.get(), 1, sd_id128_t{}), 0);
    EXPECT_GE(sd_bus_start(near.get()), 0);
    EXPECT_GE(sd_bus_start(far.get()), 0);
    while (sd_bus_is_ready(near.get()) == 0 || sd_bus_is_ready(far.get()) == 0)
      processBoth();
    processBoth();
    watch = qvr::BusWatch::make(near.get());
  }

  static void process(const Bus& bus) {
    while (sd_bus_process(bus.get(), nullptr) > 0)
      continue;
  }
  void processBoth() const {
    process(near);
    process(far);
  }

  // Calls the far end, which has this many microseconds to answer.
  void call(std::uint64_t timeout) const {
    sd_bus_message* message = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(near.get(), &message, nullptr, "/a", "a.b", "C"), 0);
    EXPECT_GE(sd_bus_call_async(near.get(), nullptr, message, ignore, nullptr, timeout), 0);
    sd_bus_message_unref(message);
  }

  Bus near;
  Bus far;
  std::unique_ptr<qvr::BusWatch> watch;
};

TEST_F(BusWatchTest, QuietBusIsNotReadable) {
  ASSERT_TRUE(watch);
  EXPECT_FALSE(isReadable(watch->fileDescriptor(), 0));
}

TEST_F(BusWatchTest, MessageMakesItReadableUntilItIsProcessed) {
  EXPECT_GE(sd_bus_emit_signal(far.get(), "/a", "a.b", "C", ""), 0);
  EXPECT_TRUE(isReadable(watch->fileDescriptor(), kDeadline));
  process(near);
  watch->update(false);
  EXPECT_FALSE(isReadable(watch->fileDescriptor(), 0));
}

TEST_F(BusWatchTest, DeadlineOfACallMakesItReadable) {
  call(50'000);
  watch->update(false);
  EXPECT_TRUE(isReadable(watch->fileDescriptor(), kDeadline));
  process(near);
  watch->update(false);
  EXPECT_FALSE(isReadable(watch->fileDescriptor(), 0));
}

TEST_F(BusWatchTest, WhatIsDueMakesItReadable) {
  watch->update(true);
  EXPECT_TRUE(isReadable(watch->fileDescriptor(), kDeadline));
  watch->update(false);
  EXPECT_FALSE(isReadable(watch->fileDescriptor(), 0));
}

TEST_F(BusWatchTest, RoomForWhatIsStillToBeSentMakesItReadable) {
  const std::string text(1 << 20, 'x');  // in signals, which nobody answers
  while ((sd_bus_get_events(near.get()) & POLLOUT) == 0)
    EXPECT_GE(sd_bus_emit_signal(near.get(), "/a", "a.b", "C", "s", text.c_str()), 0);
  watch->update(false);
  EXPECT_FALSE(isReadable(watch->fileDescriptor(), 0));
  process(far);
  EXPECT_TRUE(isReadable(watch->fileDescriptor(), kDeadline));
}

TEST_F(BusWatchTest, LostBusMakesItReadable) {
  far = nullptr;
  EXPECT_TRUE(isReadable(watch->fileDescriptor(), kDeadline));
  process(near);
  watch->update(false);  // there is no socket any more
}

}  // namespace
}  // namespace ports_test
