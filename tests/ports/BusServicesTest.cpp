// The bus, told to look for services again.

#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using std::chrono::milliseconds;

constexpr char kBus[] = "org.freedesktop.DBus";

TEST(BusServicesTest, BusLooksForServicesAgain) {
  const support::PrivateBus bus;
  const auto watcher = qvr::BusConnection::open(bus.address(), milliseconds(20'000), nullptr);
  ASSERT_TRUE(watcher);
  bool hasLooked = false;
  const auto subscription =
      watcher->subscribe(kBus, "/org/freedesktop/DBus", kBus, "ActivatableServicesChanged",
                         [&](sd_bus_message*) { hasLooked = true; });
  // An answer says that the subscription has been taken, too.
  ASSERT_TRUE(watcher
                  ->call(watcher->makeCall(kBus, "/org/freedesktop/DBus", kBus, "GetId"),
                         milliseconds(20'000))
                  .isAnswer());
  EXPECT_TRUE(qvr::reloadSessionServices(bus.address()));
  EXPECT_TRUE(watcher->processUntil([&] { return hasLooked; },
                                    qvr::BusConnection::Clock::now() + milliseconds(20'000)));
}

TEST(BusServicesTest, NoBusHasNothingToReload) {
  EXPECT_FALSE(qvr::reloadSessionServices("unix:path=/nowhere"));
}

TEST(BusServicesTest, AnyTimeoutWillDo) {
  const support::PrivateBus bus;
  EXPECT_TRUE(qvr::reloadSessionServices(bus.address(), std::numeric_limits<double>::infinity()));
  EXPECT_TRUE(qvr::reloadSessionServices(bus.address(), 1e300));
  const support::SilentBus silent;
  EXPECT_FALSE(
      qvr::reloadSessionServices(silent.address(), std::numeric_limits<double>::quiet_NaN()));
}

TEST(BusServicesTest, SilentBusIsGivenUpAtTheDeadline) {
  const support::SilentBus bus;
  EXPECT_FALSE(qvr::reloadSessionServices(bus.address(), 0.1));
}

}  // namespace
}  // namespace ports_test
