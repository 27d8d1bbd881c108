#include "tests/host/BusDesktop.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace host_test {

namespace {

constexpr std::uint64_t kPatienceMicroseconds = 20'000'000;

sd_bus* connectedTo(const std::string& address) {
  sd_bus* bus = nullptr;
  EXPECT_GE(sd_bus_new(&bus), 0);
  EXPECT_GE(sd_bus_set_address(bus, address.c_str()), 0);
  EXPECT_GE(sd_bus_set_bus_client(bus, 1), 0);
  EXPECT_GE(sd_bus_start(bus), 0);
  return bus;
}

}  // namespace

BusDesktop::BusDesktop(const std::string& serviceFolder)
    : bus(serviceFolder),
      server_(bus.address(), "org.freedesktop.Notifications",
              [this](sd_bus_message* call) { show(call); }) {}

void BusDesktop::show(sd_bus_message* call) {
  const char* text = nullptr;
  std::uint32_t replaced = 0;
  EXPECT_GT(sd_bus_message_read(call, "susss", &text, &replaced, &text, &text, &text), 0);
  {
    const std::lock_guard lock(mutex_);
    notifications_.emplace_back(text);
  }
  EXPECT_GE(sd_bus_reply_method_return(call, "u", 1), 0);
}

std::vector<std::string> BusDesktop::notifications() const {
  const std::lock_guard lock(mutex_);
  return notifications_;
}

std::string BusDesktop::open(const std::string& application, const std::string& url) const {
  std::string path = "/" + application;
  std::replace(path.begin(), path.end(), '.', '/');
  sd_bus* const connection = connectedTo(bus.address());
  sd_bus_message* call = nullptr;
  EXPECT_GE(sd_bus_message_new_method_call(connection, &call, application.c_str(), path.c_str(),
                                           "org.freedesktop.Application", "Open"),
            0);
  EXPECT_GE(sd_bus_message_append(call, "asa{sv}", 1, url.c_str(), 0), 0);
  sd_bus_error error{nullptr, nullptr, 0};
  std::string answer;
  if (sd_bus_call(connection, call, kPatienceMicroseconds, &error, nullptr) < 0)
    answer = error.message == nullptr ? "no answer" : error.message;
  sd_bus_error_free(&error);
  sd_bus_message_unref(call);
  sd_bus_flush_close_unref(connection);
  return answer;
}

void keepForName(const support::TemporaryFolder& serviceFolder, const std::string& name) {
  serviceFolder.write(name + ".service", "[D-BUS Service]\nName=" + name + "\nExec=/bin/true\n");
}

}  // namespace host_test
