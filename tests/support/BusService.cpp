#include "tests/support/BusService.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

namespace support {

BusService::BusService(const std::string& address, const std::string& name, Handler handler)
    : handler_(std::move(handler)), end_(eventfd(0, EFD_CLOEXEC)) {
  EXPECT_GE(sd_bus_new(&bus_), 0);
  EXPECT_GE(sd_bus_set_address(bus_, address.c_str()), 0);
  EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
  EXPECT_GE(sd_bus_start(bus_), 0);
  EXPECT_GE(sd_bus_add_filter(bus_, nullptr, &BusService::receive, this), 0);
  EXPECT_GE(sd_bus_request_name(bus_, name.c_str(), 0), 0);
  thread_ = std::thread([this] { run(); });
}

BusService::~BusService() {
  EXPECT_EQ(eventfd_write(end_, 1), 0);
  thread_.join();
  sd_bus_flush_close_unref(bus_);
  close(end_);
}

int BusService::receive(sd_bus_message* message, void* service, sd_bus_error*) {
  if (sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0) return 0;
  static_cast<BusService*>(service)->handler_(message);
  return 1;
}

// What the service sends is short, and goes at once: only reading is waited for.
void BusService::run() {
  pollfd watched[] = {{sd_bus_get_fd(bus_), POLLIN, 0}, {end_, POLLIN, 0}};
  for (;;) {
    int processed = 0;
    do {
      processed = sd_bus_process(bus_, nullptr);
    } while (processed > 0);
    if (processed < 0) return;
    if (poll(watched, std::size(watched), -1) < 0) continue;
    if (watched[1].revents != 0) return;
  }
}

}  // namespace support
