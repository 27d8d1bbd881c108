// Desktop notifications, shown to a server of the test's own on a private bus.

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Desktop.h"
#include "tests/support/BusService.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

constexpr char kServer[] = "org.freedesktop.Notifications";

// What a notification server was asked to show.
struct Shown {
  std::string application;
  std::string summary;
  std::string body;
};

Shown read(sd_bus_message* call) {
  const char* application = nullptr;
  const char* icon = nullptr;
  const char* summary = nullptr;
  const char* body = nullptr;
  std::uint32_t replaces = 1;
  EXPECT_TRUE(sd_bus_message_is_method_call(call, kServer, "Notify"));
  EXPECT_STREQ(sd_bus_message_get_path(call), "/org/freedesktop/Notifications");
  EXPECT_TRUE(sd_bus_message_has_signature(call, "susssasa{sv}i"));
  EXPECT_GT(sd_bus_message_read(call, "susss", &application, &replaces, &icon, &summary, &body), 0);
  EXPECT_EQ(replaces, 0U);
  return {application, summary, body};
}

class NotificationTest : public testing::Test {
 protected:
  qvr::NotificationOptions options(const std::string& body = "text") const {
    qvr::NotificationOptions options;
    options.applicationName = "Mail";
    options.summary = "Sign-in";
    options.body = body;
    options.busAddress = bus.address();
    return options;
  }

  // What a server that takes everything was shown.
  std::vector<Shown> shownFor(const std::vector<qvr::NotificationOptions>& notifications) const {
    std::mutex mutex;
    std::vector<Shown> shown;
    const support::BusService server(bus.address(), kServer, [&](sd_bus_message* call) {
      const std::scoped_lock lock(mutex);
      shown.push_back(read(call));
      EXPECT_GE(sd_bus_reply_method_return(call, "u", 1), 0);
    });
    for (const qvr::NotificationOptions& notification : notifications) {
      EXPECT_TRUE(qvr::showNotification(notification));
    }
    const std::scoped_lock lock(mutex);
    return shown;
  }

  const support::PrivateBus bus;
};

TEST_F(NotificationTest, IsShownWithItsTexts) {
  const std::vector<Shown> shown = shownFor({options("Nobody waits for this sign-in – é.")});
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0].application, "Mail");
  EXPECT_EQ(shown[0].summary, "Sign-in");
  EXPECT_EQ(shown[0].body, "Nobody waits for this sign-in – é.");
}

TEST_F(NotificationTest, BodyIsNoMarkup) {
  const std::vector<Shown> shown = shownFor({options("<a href=\"x\">&amp;</a>")});
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0].body, "&lt;a href=\"x\"&gt;&amp;amp;&lt;/a&gt;");
}

TEST_F(NotificationTest, WithoutAServerNothingIsShown) {
  EXPECT_FALSE(qvr::showNotification(options()));
}

TEST_F(NotificationTest, ServerThatRefusesShowsNothing) {
  const support::BusService server(bus.address(), kServer, [](sd_bus_message* call) {
    EXPECT_GE(sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FAILED, "too many"), 0);
  });
  EXPECT_FALSE(qvr::showNotification(options()));
}

TEST_F(NotificationTest, TextThatIsNoTextShowsNothing) {
  const support::BusService server(bus.address(), kServer, [](sd_bus_message* call) {
    EXPECT_GE(sd_bus_reply_method_return(call, "u", 1), 0);
  });
  EXPECT_FALSE(qvr::showNotification(options("\xff")));
}

TEST_F(NotificationTest, SilentServerIsWaitedForUntilTheDeadline) {
  const support::BusService server(bus.address(), kServer, [](sd_bus_message*) {});
  qvr::NotificationOptions notification = options();
  notification.timeoutSeconds = 0.2;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(qvr::showNotification(notification));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

TEST_F(NotificationTest, SilentBusIsWaitedForUntilTheDeadline) {
  const support::SilentBus silent;
  qvr::NotificationOptions notification = options();
  notification.busAddress = silent.address();
  notification.timeoutSeconds = 0.2;
  EXPECT_FALSE(qvr::showNotification(notification));
}

TEST_F(NotificationTest, AnyTimeoutWillDo) {
  std::vector<qvr::NotificationOptions> notifications(2, options());
  notifications[0].timeoutSeconds = std::numeric_limits<double>::infinity();
  notifications[1].timeoutSeconds = 1e300;
  EXPECT_EQ(shownFor(notifications).size(), 2U);
  const support::SilentBus silent;
  qvr::NotificationOptions notification = options();
  notification.busAddress = silent.address();
  notification.timeoutSeconds = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(qvr::showNotification(notification));
}

TEST_F(NotificationTest, WithoutABusNothingIsShown) {
  qvr::NotificationOptions notification = options();
  notification.busAddress = "unix:path=/nonexistent/bus";
  EXPECT_FALSE(qvr::showNotification(notification));
}

}  // namespace
}  // namespace ports_test
