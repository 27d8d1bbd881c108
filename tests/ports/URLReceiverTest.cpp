// The receiver of URLs, called over a private bus as a desktop calls an application.

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <future>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "src/ports/URLReceiver.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using qvr::BusReply;
using std::chrono::milliseconds;

constexpr char kName[] = "org.example.Test-Mail";
constexpr char kPath[] = "/org/example/Test_Mail";
constexpr char kURL[] = "org.example.mail:/oauth2/auth?code=a%2Bb&state=x";
constexpr int kDeadline = 30'000;

// How a call ended, without the message.
struct Outcome {
  BusReply::Kind kind;
  std::string errorName;
  std::string errorText;
};

// A call's arguments are written into it by one of these.
using Writer = std::function<void(sd_bus_message*)>;

Writer opening(std::vector<std::string> urls) {
  return [urls = std::move(urls)](sd_bus_message* call) {
    EXPECT_GE(sd_bus_message_open_container(call, SD_BUS_TYPE_ARRAY, "s"), 0);
    for (const std::string& url : urls)
      EXPECT_GE(sd_bus_message_append(call, "s", url.c_str()), 0);
    EXPECT_GE(sd_bus_message_close_container(call), 0);
    EXPECT_GE(sd_bus_message_append(call, "a{sv}", 1, "desktop-startup-id", "s", "1"), 0);
  };
}

bool isReadable(int descriptor, int timeout) {
  pollfd watched{descriptor, POLLIN, 0};
  return poll(&watched, 1, timeout) == 1;
}

class URLReceiverTest : public testing::Test {
 protected:
  qvr::Ref<qvr::URLReceiver> makeReceiver() const {
    std::string problem;
    auto receiver = qvr::makeURLReceiver({kName, bus.address(), 30}, &problem);
    EXPECT_TRUE(receiver) << problem;
    EXPECT_EQ(problem, "");
    return receiver;
  }

  // Calls the application from a thread, as another process would.
  std::future<Outcome> call(const std::string& member, Writer write,
                            const std::string& path = kPath) const {
    return std::async(std::launch::async, [this, member, write, path] {
      const auto caller = qvr::BusConnection::open(bus.address(), milliseconds(kDeadline), nullptr);
      qvr::BusMessage message =
          caller->makeCall(kName, path, "org.freedesktop.Application", member);
      write(message.get());
      const BusReply reply = caller->call(std::move(message), milliseconds(kDeadline));
      return Outcome{reply.kind, reply.errorName, reply.errorText};
    });
  }

  // Processes what comes, as a host's loop does, until the caller has its answer.
  Outcome processFor(std::future<Outcome> call, qvr::URLReceiver& receiver,
                     const qvr::URLReceiver::Handler& handler) const {
    while (call.wait_for(milliseconds(0)) != std::future_status::ready) {
      if (!isReadable(receiver.fileDescriptor(), 10)) continue;
      EXPECT_TRUE(receiver.process(handler));
    }
    return call.get();
  }

  // The same with a handler that takes everything, and notes it.
  Outcome processFor(std::future<Outcome> call, qvr::URLReceiver& receiver) {
    return processFor(std::move(call), receiver, [this](const std::string& url) {
      received.push_back(url);
      return true;
    });
  }

  support::PrivateBus bus;
  std::vector<std::string> received;
};

bool refuseAll(const std::string&) {
  return false;
}

TEST_F(URLReceiverTest, GetsWhatTheApplicationIsOpenedWith) {
  const auto receiver = makeReceiver();
  EXPECT_TRUE(receiver->ownsName());
  const Outcome outcome = processFor(call("Open", opening({kURL, "second:/x"})), *receiver);
  EXPECT_EQ(outcome.kind, BusReply::Kind::kAnswer) << outcome.errorText;
  EXPECT_EQ(received, (std::vector<std::string>{kURL, "second:/x"}));
}

TEST_F(URLReceiverTest, OneDescriptorServesForManyCalls) {
  const auto receiver = makeReceiver();
  const int descriptor = receiver->fileDescriptor();
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(isReadable(descriptor, 0));
    EXPECT_EQ(processFor(call("Open", opening({kURL})), *receiver).kind, BusReply::Kind::kAnswer);
    EXPECT_EQ(receiver->fileDescriptor(), descriptor);
  }
  EXPECT_EQ(received.size(), 3U);
}

TEST_F(URLReceiverTest, ProcessingNothingDoesNotWait) {
  const auto receiver = makeReceiver();
  EXPECT_TRUE(receiver->process(refuseAll));
  EXPECT_TRUE(receiver->process(refuseAll));
}

TEST_F(URLReceiverTest, OpenedWithNothingIsAnswered) {
  const auto receiver = makeReceiver();
  EXPECT_EQ(processFor(call("Open", opening({})), *receiver).kind, BusReply::Kind::kAnswer);
  EXPECT_TRUE(received.empty());
}

TEST_F(URLReceiverTest, SenderIsToldWhenAURLIsOfNoUse) {
  const auto receiver = makeReceiver();
  const Outcome outcome = processFor(call("Open", opening({kURL})), *receiver, refuseAll);
  EXPECT_EQ(outcome.kind, BusReply::Kind::kError);
  EXPECT_EQ(outcome.errorName, "org.freedesktop.DBus.Error.Failed");
  EXPECT_EQ(outcome.errorText, "The application has no use for the address.");
}

TEST_F(URLReceiverTest, OneURLOfNoUseKeepsNoneFromBeingHandedOver) {
  const auto receiver = makeReceiver();
  int calls = 0;
  const auto takesTheSecond = [&calls](const std::string&) { return ++calls == 2; };
  EXPECT_EQ(processFor(call("Open", opening({kURL, kURL})), *receiver, takesTheSecond).kind,
            BusReply::Kind::kError);
  EXPECT_EQ(calls, 2);
}

TEST_F(URLReceiverTest, URLOverOneMebibyteIsRefused) {
  const auto receiver = makeReceiver();
  const std::string longest = "a:" + std::string((1 << 20) - 2, 'x');
  const Outcome outcome = processFor(call("Open", opening({kURL, longest + "x"})), *receiver);
  EXPECT_EQ(outcome.errorName, "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(outcome.errorText, "The address is longer than 1 MiB.");
  EXPECT_TRUE(received.empty());
  EXPECT_EQ(processFor(call("Open", opening({longest})), *receiver).kind, BusReply::Kind::kAnswer);
  EXPECT_EQ(received, std::vector<std::string>{longest});
}

TEST_F(URLReceiverTest, IsActivatedWithoutEffect) {
  const auto receiver = makeReceiver();
  const auto outcome = processFor(call("Activate",
                                       [](sd_bus_message* message) {
                                         EXPECT_GE(sd_bus_message_append(message, "a{sv}", 0), 0);
                                       }),
                                  *receiver);
  EXPECT_EQ(outcome.kind, BusReply::Kind::kAnswer) << outcome.errorText;
  EXPECT_TRUE(received.empty());
}

TEST_F(URLReceiverTest, HasNoActions) {
  const auto receiver = makeReceiver();
  const Writer write = [](sd_bus_message* message) {
    EXPECT_GE(sd_bus_message_append(message, "sava{sv}", "quit", 0, 0), 0);
  };
  EXPECT_EQ(processFor(call("ActivateAction", write), *receiver).errorName,
            "org.freedesktop.DBus.Error.NotSupported");
}

TEST_F(URLReceiverTest, OtherCallsAreErrors) {
  const auto receiver = makeReceiver();
  const Writer writeText = [](sd_bus_message* message) {
    EXPECT_GE(sd_bus_message_append(message, "s", kURL), 0);
  };
  EXPECT_EQ(processFor(call("Open", writeText), *receiver).kind, BusReply::Kind::kError);
  EXPECT_EQ(processFor(call("Close", opening({})), *receiver).kind, BusReply::Kind::kError);
  EXPECT_EQ(processFor(call("Open", opening({kURL}), "/other"), *receiver).kind,
            BusReply::Kind::kError);
  EXPECT_TRUE(received.empty());
}

TEST_F(URLReceiverTest, SecondOneWaitsForTheNameAndTakesOver) {
  auto first = makeReceiver();
  const auto second = makeReceiver();
  EXPECT_TRUE(first->ownsName());
  EXPECT_FALSE(second->ownsName());
  EXPECT_EQ(processFor(call("Open", opening({kURL})), *first).kind, BusReply::Kind::kAnswer);

  first = nullptr;
  while (!second->ownsName()) {
    ASSERT_TRUE(isReadable(second->fileDescriptor(), kDeadline));
    ASSERT_TRUE(second->process(refuseAll));
  }
  EXPECT_EQ(processFor(call("Open", opening({kURL})), *second).kind, BusReply::Kind::kAnswer);
  EXPECT_EQ(received.size(), 2U);
}

TEST_F(URLReceiverTest, NothingIsLostWhenTheNameIsGivenUp) {
  const auto first = makeReceiver();
  const auto second = makeReceiver();
  auto caller = call("Open", opening({kURL}));
  ASSERT_TRUE(isReadable(first->fileDescriptor(), kDeadline));
  first->giveUpName([this](const std::string& url) {
    received.push_back(url);
    return true;
  });
  EXPECT_FALSE(first->ownsName());
  EXPECT_EQ(processFor(std::move(caller), *second).kind, BusReply::Kind::kAnswer);
  EXPECT_EQ(received, std::vector<std::string>{kURL});
  EXPECT_EQ(processFor(call("Open", opening({"next:/x"})), *second).kind, BusReply::Kind::kAnswer);
  EXPECT_EQ(received.back(), "next:/x");
  EXPECT_TRUE(second->ownsName());
}

TEST_F(URLReceiverTest, WhoWaitsForTheNameMayGiveItUpToo) {
  auto first = makeReceiver();
  const auto second = makeReceiver();
  second->giveUpName(refuseAll);
  const auto third = makeReceiver();
  first = nullptr;
  while (!third->ownsName()) {
    ASSERT_TRUE(isReadable(third->fileDescriptor(), kDeadline));
    ASSERT_TRUE(third->process(refuseAll));
  }
  EXPECT_FALSE(second->ownsName());
}

TEST_F(URLReceiverTest, NameOfALostBusIsGivenUpAtOnce) {
  const auto receiver = makeReceiver();
  bus.crash();
  receiver->giveUpName(refuseAll);
  EXPECT_FALSE(receiver->ownsName());
}

TEST_F(URLReceiverTest, ExceptionOfTheHandlerIsTheHostsAndTheSenderIsTold) {
  const auto receiver = makeReceiver();
  auto first = call("Open", opening({kURL}));
  const auto raise = [](const std::string&) -> bool { throw std::runtime_error("full"); };
  ASSERT_TRUE(isReadable(receiver->fileDescriptor(), kDeadline));
  EXPECT_THROW(while (isReadable(receiver->fileDescriptor(), kDeadline)) receiver->process(raise),
               std::runtime_error);
  EXPECT_EQ(processFor(std::move(first), *receiver).errorText, "The application failed.");
  EXPECT_EQ(processFor(call("Open", opening({kURL})), *receiver).kind, BusReply::Kind::kAnswer);
}

TEST_F(URLReceiverTest, HandlerMayDropTheReceiver) {
  auto receiver = makeReceiver();
  auto caller = call("Open", opening({kURL}));
  qvr::URLReceiver* const used = receiver.get();
  while (receiver) {
    ASSERT_TRUE(isReadable(used->fileDescriptor(), kDeadline));
    used->process([&receiver](const std::string&) {
      receiver = nullptr;
      return true;
    });
  }
  EXPECT_EQ(caller.get().kind, BusReply::Kind::kAnswer);
}

TEST_F(URLReceiverTest, SenderIsToldWhenTheReceiverEndsWithoutLooking) {
  auto receiver = makeReceiver();
  auto caller = call("Open", opening({kURL}));
  ASSERT_TRUE(isReadable(receiver->fileDescriptor(), kDeadline));
  receiver = nullptr;
  EXPECT_EQ(caller.get().kind, BusReply::Kind::kError);
}

TEST_F(URLReceiverTest, LostBusIsNoticedAndStaysLost) {
  const auto receiver = makeReceiver();
  bus.crash();
  ASSERT_TRUE(isReadable(receiver->fileDescriptor(), kDeadline));
  while (receiver->process(refuseAll)) {
    ASSERT_TRUE(isReadable(receiver->fileDescriptor(), kDeadline));
  }
  EXPECT_FALSE(receiver->process(refuseAll));
  EXPECT_FALSE(receiver->ownsName());
}

TEST_F(URLReceiverTest, NamesThatAreNoneAreRefused) {
  for (const char* name : {"", "nodot", ":1.5", "org..example", "org.exa mple", "org.é.x",
                           "org.freedesktop.DBus", "/org/example"}) {
    std::string problem;
    EXPECT_FALSE(qvr::makeURLReceiver({name, bus.address(), 30}, &problem)) << name;
    EXPECT_NE(problem.find("\"" + std::string(name) + "\""), std::string::npos) << problem;
  }
}

TEST_F(URLReceiverTest, WithoutABusThereIsNone) {
  std::string problem;
  EXPECT_FALSE(qvr::makeURLReceiver({kName, "unix:path=/nonexistent/bus", 30}, &problem));
  EXPECT_NE(problem, "");
  EXPECT_FALSE(qvr::makeURLReceiver({kName, "unix:path=/nonexistent/bus", 30}));
}

TEST_F(URLReceiverTest, AnyTimeoutWillDo) {
  for (const double seconds : {std::numeric_limits<double>::infinity(), 1e300}) {
    const auto receiver = qvr::makeURLReceiver({kName, bus.address(), seconds});
    ASSERT_TRUE(receiver) << seconds;
    receiver->giveUpName(refuseAll);
  }
  const support::SilentBus silent;
  for (const double seconds : {std::numeric_limits<double>::quiet_NaN(), -1e300})
    EXPECT_FALSE(qvr::makeURLReceiver({kName, silent.address(), seconds})) << seconds;
}

TEST_F(URLReceiverTest, SilentBusIsWaitedForUntilTheDeadline) {
  const support::SilentBus silent;
  std::string problem;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(qvr::makeURLReceiver({kName, silent.address(), 0.2}, &problem));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(200));
  EXPECT_NE(problem, "");
}

}  // namespace
}  // namespace ports_test
