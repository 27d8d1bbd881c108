// Connections to a bus: what is told apart, and that nothing waits past its deadline.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>

#include "src/ports/BusConnection.h"
#include "src/ports/BusLibrary.h"
#include "tests/support/BusService.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using namespace std::chrono_literals;
using qvr::BusConnection;
using qvr::BusReply;

constexpr auto kLong = 20s;

class BusConnectionTest : public testing::Test {
 protected:
  std::unique_ptr<BusConnection> connect() {
    std::string problem;
    auto connection = BusConnection::open(bus_.address(), kLong, &problem);
    if (connection == nullptr) throw std::runtime_error(problem);
    return connection;
  }

  static qvr::BusMessage callOfBus(const BusConnection& connection, const std::string& member) {
    return connection.makeCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", member);
  }

  support::PrivateBus bus_;
};

TEST_F(BusConnectionTest, AnswersOfTheBusArrive) {
  const auto connection = connect();
  const BusReply reply = connection->call(callOfBus(*connection, "GetId"), kLong);
  ASSERT_TRUE(reply.isAnswer());
  const char* id = nullptr;
  ASSERT_GT(sd_bus_message_read(reply.message.get(), "s", &id), 0);
  EXPECT_EQ(std::string(id).size(), 32u);
}

TEST_F(BusConnectionTest, ErrorsArriveWithNameAndText) {
  const auto connection = connect();
  const BusReply reply = connection->call(callOfBus(*connection, "NoSuchMethod"), kLong);
  EXPECT_EQ(reply.kind, BusReply::Kind::kError);
  EXPECT_EQ(reply.errorName, "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_NE(reply.errorText.find("NoSuchMethod"), std::string::npos);
}

TEST_F(BusConnectionTest, IllegalNamesAndNullMessagesAreInvalidArguments) {
  const auto connection = connect();
  EXPECT_EQ(connection->makeCall("not a name", "/", "a.b", "C"), nullptr);
  EXPECT_EQ(connection->makeCall("a.b", "no path", "a.b", "C"), nullptr);
  const BusReply reply = connection->call(nullptr, kLong);
  EXPECT_EQ(reply.kind, BusReply::Kind::kError);
  EXPECT_EQ(reply.errorName, "org.freedesktop.DBus.Error.InvalidArgs");
}

TEST_F(BusConnectionTest, RepliesComeInTheOrderOfTheirCalls) {
  const auto connection = connect();
  std::vector<qvr::BusMessage> calls;
  for (int index = 0; index < 500; ++index) {
    calls.push_back(callOfBus(*connection, index % 2 == 0 ? "GetId" : "NoSuchMethod"));
  }
  const std::vector<BusReply> replies = connection->callAll(std::move(calls), kLong);
  ASSERT_EQ(replies.size(), 500u);
  for (std::size_t index = 0; index < replies.size(); ++index) {
    ASSERT_EQ(replies[index].kind,
              index % 2 == 0 ? BusReply::Kind::kAnswer : BusReply::Kind::kError)
        << index;
  }
}

TEST_F(BusConnectionTest, NoCallsHaveNoReplies) {
  EXPECT_TRUE(connect()->callAll({}, kLong).empty());
}

TEST_F(BusConnectionTest, CallThatNobodyAnswersTimesOutAndTheConnectionStays) {
  const auto connection = connect();
  const auto deaf = connect();  // never processes what it is sent
  const char* name = nullptr;
  ASSERT_GE(sd_bus_get_unique_name(deaf->get(), &name), 0);
  const auto started = BusConnection::Clock::now();
  const BusReply reply = connection->call(connection->makeCall(name, "/", "a.b", "C"), 50ms);
  EXPECT_EQ(reply.kind, BusReply::Kind::kTimedOut);
  EXPECT_GE(BusConnection::Clock::now() - started, 50ms);
  EXPECT_FALSE(connection->isLost());
  EXPECT_TRUE(connection->call(callOfBus(*connection, "GetId"), kLong).isAnswer());
}

TEST_F(BusConnectionTest, PeerThatLeavesDuringACallIsAnErrorAndNotATimeOut) {
  const support::BusService leaving(
      bus_.address(), "org.example.Leaving",
      [](sd_bus_message* call) { sd_bus_close(sd_bus_message_get_bus(call)); });
  const auto connection = connect();
  const BusReply reply =
      connection->call(connection->makeCall("org.example.Leaving", "/", "a.b", "C"), kLong);
  EXPECT_EQ(reply.kind, BusReply::Kind::kError);
  EXPECT_EQ(reply.errorName, "org.freedesktop.DBus.Error.NoReply");
}

TEST_F(BusConnectionTest, LostBusIsToldFromATimeOut) {
  const auto connection = connect();
  bus_.crash();
  const BusReply reply = connection->call(callOfBus(*connection, "GetId"), kLong);
  EXPECT_EQ(reply.kind, BusReply::Kind::kLost);
  EXPECT_TRUE(connection->isLost());
}

TEST_F(BusConnectionTest, SignalsReachTheirSubscriberWhileItLives) {
  const auto connection = connect();
  int seen = 0;
  auto subscription =
      connection->subscribe("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                            "NameOwnerChanged", [&seen](sd_bus_message*) { ++seen; });
  ASSERT_NE(subscription, nullptr);
  ASSERT_TRUE(connection->call(callOfBus(*connection, "GetId"), kLong).isAnswer());
  connect();
  EXPECT_TRUE(
      connection->processUntil([&seen] { return seen >= 2; }, BusConnection::Clock::now() + kLong));
  subscription.reset();
  const int before = seen;
  connect();
  ASSERT_TRUE(connection->call(callOfBus(*connection, "GetId"), kLong).isAnswer());
  EXPECT_EQ(seen, before);
}

TEST_F(BusConnectionTest, WaitEndsAtItsDeadline) {
  const auto connection = connect();
  const auto deadline = BusConnection::Clock::now() + 30ms;
  EXPECT_FALSE(connection->processUntil([] { return false; }, deadline));
  EXPECT_GE(BusConnection::Clock::now(), deadline);
  EXPECT_FALSE(connection->isLost());
}

// What open() says about an address that is no bus.
std::string problemOf(const std::string& address, std::chrono::milliseconds timeout = kLong) {
  std::string problem;
  EXPECT_EQ(BusConnection::open(address, timeout, &problem), nullptr);
  EXPECT_EQ(BusConnection::open(address, timeout, nullptr), nullptr);
  return problem;
}

TEST(BusConnectionOpenTest, SaysThatThereIsNoBus) {
  EXPECT_EQ(problemOf("unix:path=/nonexistent/bus"),
            "There is no D-Bus session: No such file or directory.");
  EXPECT_EQ(problemOf("no address"), "There is no D-Bus session: Connection refused.");
}

// The session's variables, as they were, when it goes.
class SessionVariables {
 public:
  SessionVariables() {
    for (const char* name : {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}) {
      const char* const value = std::getenv(name);
      before_.emplace_back(name,
                           value == nullptr ? std::nullopt : std::optional<std::string>(value));
      unsetenv(name);
    }
  }
  ~SessionVariables() {
    for (const auto& [name, value] : before_)
      value ? setenv(name, value->c_str(), 1) : unsetenv(name);
  }

 private:
  std::vector<std::pair<const char*, std::optional<std::string>>> before_;
};

TEST(BusConnectionOpenTest, EnvironmentNamesTheSessionsOwnBus) {
  const support::PrivateBus bus;
  const SessionVariables variables;
  EXPECT_EQ(problemOf(""),
            "There is no D-Bus session: neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is "
            "set.");
  setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
  EXPECT_NE(BusConnection::open("", kLong, nullptr), nullptr);
}

TEST(BusConnectionOpenTest, GivesUpOnASilentBusAtTheDeadline) {
  const support::SilentBus silent;
  const auto started = BusConnection::Clock::now();
  EXPECT_EQ(problemOf(silent.address(), 50ms), "The D-Bus session does not answer.");
  const auto taken = BusConnection::Clock::now() - started;
  EXPECT_GE(taken, 100ms);  // twice opened
  EXPECT_LT(taken, 10s);
}

TEST(BusLibraryTest, SharedLibraryHasEveryFunction) {
  EXPECT_EQ(qvr::BusLibrary::shared().problem, "");
}

TEST(BusLibraryTest, MissingLibraryIsAProblemThatNamesIt) {
  const qvr::BusLibrary library = qvr::BusLibrary::open("libno-such-bus.so.0");
  EXPECT_NE(library.problem.find("libno-such-bus.so.0"), std::string::npos);
}

TEST(BusLibraryTest, LibraryWithoutTheFunctionsIsAProblemThatNamesOne) {
  const qvr::BusLibrary library = qvr::BusLibrary::open("libc.so.6");
  EXPECT_TRUE(library.problem.starts_with("libc.so.6 has no function sd_bus_")) << library.problem;
}

}  // namespace
}  // namespace ports_test
