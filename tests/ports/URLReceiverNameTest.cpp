// A receiver that gives its name up: what was sent to it until then is not lost.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using std::chrono::milliseconds;

constexpr char kName[] = "org.example.Mail";
constexpr int kDeadline = 20'000;

class URLReceiverNameTest : public testing::Test {
 protected:
  qvr::Ref<qvr::URLReceiver> makeReceiver() const {
    return qvr::makeURLReceiver({kName, bus.address(), 20});
  }

  // Opens the URL as another process would; true when it was taken.
  std::future<bool> open(const std::string& url) const {
    return std::async(std::launch::async, [this, url] {
      const auto caller = qvr::BusConnection::open(bus.address(), milliseconds(kDeadline), nullptr);
      qvr::BusMessage call =
          caller->makeCall(kName, "/org/example/Mail", "org.freedesktop.Application", "Open");
      EXPECT_GE(sd_bus_message_append(call.get(), "asa{sv}", 1, url.c_str(), 0), 0);
      return caller->call(std::move(call), milliseconds(kDeadline)).isAnswer();
    });
  }

  // Waits until something has come for the receiver, which does not look at it.
  static void waitFor(const qvr::URLReceiver& receiver) {
    pollfd watched{receiver.fileDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&watched, 1, kDeadline), 1);
  }

  qvr::URLReceiver::Handler keep() {
    return [this](const std::string& url) {
      received.push_back(url);
      return true;
    };
  }

  // Leaves nothing to be read, so that what comes next is seen.
  void settle(qvr::URLReceiver& receiver) { EXPECT_TRUE(receiver.process(keep())); }

  const support::PrivateBus bus;
  std::vector<std::string> received;
};

TEST_F(URLReceiverNameTest, URLThatCameBeforeTheNameIsGivenUpIsDelivered) {
  const auto receiver = makeReceiver();
  ASSERT_TRUE(receiver);
  settle(*receiver);
  auto taken = open("a:b");
  waitFor(*receiver);
  receiver->giveUpName(keep());
  EXPECT_THAT(received, testing::ElementsAre("a:b"));
  EXPECT_TRUE(taken.get());
  EXPECT_FALSE(receiver->ownsName());
}

TEST_F(URLReceiverNameTest, NextReceiverHasTheNameWhileTheFirstIsStillThere) {
  const auto first = makeReceiver();
  const auto second = makeReceiver();
  ASSERT_TRUE(first && second);
  EXPECT_FALSE(second->ownsName());
  settle(*second);
  first->giveUpName(keep());
  waitFor(*second);
  settle(*second);
  EXPECT_TRUE(second->ownsName());
  auto taken = open("c:d");
  while (received.empty() && !testing::Test::HasFailure()) {
    waitFor(*second);
    settle(*second);
  }
  EXPECT_THAT(received, testing::ElementsAre("c:d"));
  EXPECT_TRUE(taken.get());
}

TEST_F(URLReceiverNameTest, GivingUpOnALostBusEndsAtOnce) {
  support::PrivateBus lost;
  const auto receiver = qvr::makeURLReceiver({kName, lost.address(), 3600});
  ASSERT_TRUE(receiver);
  lost.crash();
  receiver->giveUpName(keep());
  EXPECT_FALSE(receiver->ownsName());
  EXPECT_THAT(received, testing::IsEmpty());
}

}  // namespace
}  // namespace ports_test
