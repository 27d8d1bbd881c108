// A receiver that is sent more than its host can take at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr char kName[] = "org.example.Mail";
constexpr milliseconds kPatience(20'000);
constexpr char kTaken[] = "taken";
constexpr char kNoTime[] = "The application is leaving and has no time for the address.";

// Another process, which does not wait for an answer before it opens the next address.
class Caller {
 public:
  explicit Caller(const std::string& address)
      : connection_(qvr::BusConnection::open(address, kPatience, nullptr)) {}

  // When this returns, the bus has the call.
  void open(std::initializer_list<const char*> urls) {
    qvr::BusMessage call =
        connection_->makeCall(kName, "/org/example/Mail", "org.freedesktop.Application", "Open");
    EXPECT_GE(sd_bus_message_open_container(call.get(), SD_BUS_TYPE_ARRAY, "s"), 0);
    for (const char* url : urls)
      EXPECT_GE(sd_bus_message_append(call.get(), "s", url), 0);
    EXPECT_GE(sd_bus_message_close_container(call.get()), 0);
    EXPECT_GE(sd_bus_message_append(call.get(), "a{sv}", 0), 0);
    EXPECT_GE(sd_bus_call_async(connection_->get(), nullptr, call.get(), &receive, this, 0), 0);
    ++sent_;
    EXPECT_TRUE(connection_
                    ->call(connection_->makeCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                 "org.freedesktop.DBus", "GetId"),
                           kPatience)
                    .isAnswer());
  }

  // What came of the calls: kTaken, or the error's text.
  const std::vector<std::string>& answers() {
    EXPECT_TRUE(connection_->processUntil([this] { return answers_.size() == sent_; },
                                          qvr::BusConnection::Clock::now() + kPatience));
    return answers_;
  }

 private:
  static int receive(sd_bus_message* answer, void* caller, sd_bus_error*) noexcept {
    const sd_bus_error* const error = sd_bus_message_get_error(answer);
    static_cast<Caller*>(caller)->answers_.emplace_back(error == nullptr ? kTaken : error->message);
    return 0;
  }

  std::size_t sent_ = 0;
  std::vector<std::string> answers_{};
  const std::unique_ptr<qvr::BusConnection> connection_;
};

class URLReceiverFloodTest : public testing::Test {
 protected:
  // Leaves nothing to be read, so that what comes next is seen.
  void start(double timeoutSeconds = 20) {
    receiver = qvr::makeURLReceiver({kName, bus.address(), timeoutSeconds});
    ASSERT_TRUE(receiver);
    ASSERT_TRUE(receiver->process(keep()));
  }

  bool isReadable(milliseconds timeout = kPatience) const {
    pollfd watched{receiver->fileDescriptor(), POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(timeout.count())) == 1;
  }

  qvr::URLReceiver::Handler keep() {
    return [this](const std::string& url) {
      received.push_back(url);
      return true;
    };
  }

  // One that first does what takes as long as this.
  qvr::URLReceiver::Handler keepFor(double seconds) {
    return [this, seconds](const std::string& url) {
      qvr::NotificationOptions notification;
      notification.busAddress = silent.address();
      notification.timeoutSeconds = seconds;
      EXPECT_FALSE(qvr::showNotification(notification));
      return keep()(url);
    };
  }

  const support::PrivateBus bus;
  const support::SilentBus silent;
  Caller caller{bus.address()};
  qvr::Ref<qvr::URLReceiver> receiver;
  std::vector<std::string> received;
};

TEST_F(URLReceiverFloodTest, HostHasItsTurnBetweenTwoCalls) {
  start();
  caller.open({"a:1", "a:2"});
  // The next call is there before this one is done with.
  const auto keepAndProvoke = [this](const std::string& url) {
    if (url == "a:2") {
      caller.open({"b:1"});
      EXPECT_TRUE(isReadable());
    }
    return keep()(url);
  };
  ASSERT_TRUE(isReadable());
  EXPECT_TRUE(receiver->process(keepAndProvoke));
  EXPECT_THAT(received, ElementsAre("a:1", "a:2"));
  EXPECT_TRUE(isReadable(milliseconds(0)));
  EXPECT_TRUE(receiver->process(keep()));
  EXPECT_THAT(received, ElementsAre("a:1", "a:2", "b:1"));
  EXPECT_FALSE(isReadable(milliseconds(0)));
  EXPECT_THAT(caller.answers(), ElementsAre(kTaken, kTaken));
}

TEST_F(URLReceiverFloodTest, AllThatHasArrivedIsHandedOverWithTheName) {
  start();
  for (const char* url : {"a:1", "a:2", "a:3"})
    caller.open({url});
  receiver->giveUpName(keep());
  EXPECT_THAT(received, ElementsAre("a:1", "a:2", "a:3"));
  EXPECT_THAT(caller.answers(), ElementsAre(kTaken, kTaken, kTaken));
}

TEST_F(URLReceiverFloodTest, WhatAFailedHandOverLeftIsProcessedCallByCall) {
  start();
  for (const char* url : {"a:1", "a:2", "a:3"})
    caller.open({url});
  const auto raise = [](const std::string&) -> bool { throw std::runtime_error("full"); };
  EXPECT_THROW(receiver->giveUpName(raise), std::runtime_error);
  ASSERT_TRUE(isReadable(milliseconds(0)));
  EXPECT_TRUE(receiver->process(keep()));
  EXPECT_THAT(received, ElementsAre("a:2"));
  ASSERT_TRUE(isReadable(milliseconds(0)));
  EXPECT_TRUE(receiver->process(keep()));
  EXPECT_THAT(received, ElementsAre("a:2", "a:3"));
  EXPECT_FALSE(isReadable(milliseconds(0)));
  EXPECT_THAT(caller.answers(), ElementsAre("The application failed.", kTaken, kTaken));
}

TEST_F(URLReceiverFloodTest, WhatArrivedIsHandedOverThoughTheBusIsLost) {
  support::PrivateBus lost;
  Caller other(lost.address());
  receiver = qvr::makeURLReceiver({kName, lost.address(), 20});
  ASSERT_TRUE(receiver);
  for (const char* url : {"a:1", "a:2", "a:3"})
    other.open({url});
  const auto raise = [](const std::string&) -> bool { throw std::runtime_error("full"); };
  EXPECT_THROW(receiver->giveUpName(raise), std::runtime_error);
  lost.crash();
  EXPECT_TRUE(receiver->process(keep()));
  ASSERT_TRUE(isReadable(milliseconds(0)));
  EXPECT_FALSE(receiver->process(keep()));
  EXPECT_THAT(received, ElementsAre("a:2", "a:3"));
}

TEST_F(URLReceiverFloodTest, SlowHandlerDoesNotHoldUpTheNameForLongerThanTheTimeout) {
  constexpr double kTimeout = 2;
  start(kTimeout);
  caller.open({"a:1", "a:2"});
  caller.open({"b:1"});
  receiver->giveUpName(keepFor(kTimeout));
  EXPECT_FALSE(receiver->ownsName());
  EXPECT_THAT(received, ElementsAre("a:1"));
  EXPECT_THAT(caller.answers(), ElementsAre(kNoTime, kNoTime));
}

}  // namespace
}  // namespace ports_test
