// The portal of a sandbox, played by the test on a private bus.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "src/ports/DesktopPortal.h"
#include "src/ports/DesktopWorkspace.h"
#include "tests/support/BusService.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

using qvr::PortalOutcome;

constexpr char kURL[] = "https://login.example.com/authorize?state=a%2Bb&x=1";
constexpr char kPortal[] = "org.freedesktop.portal.Desktop";
constexpr char kInterface[] = "org.freedesktop.portal.OpenURI";

// The path of the request that a caller gets, from the token among its options.
std::string requestPath(sd_bus_message* call, const std::string& token) {
  std::string sender = std::string(sd_bus_message_get_sender(call)).substr(1);
  std::replace(sender.begin(), sender.end(), '.', '_');
  return "/org/freedesktop/portal/desktop/request/" + sender + "/" + token;
}

void respond(sd_bus_message* call, const std::string& path, std::uint32_t response) {
  sd_bus* const bus = sd_bus_message_get_bus(call);
  sd_bus_message* signal = nullptr;
  EXPECT_GE(sd_bus_message_new_signal(bus, &signal, path.c_str(), "org.freedesktop.portal.Request",
                                      "Response"),
            0);
  EXPECT_GE(sd_bus_message_append(signal, "ua{sv}", response, 0), 0);
  EXPECT_GE(sd_bus_send_to(bus, signal, sd_bus_message_get_sender(call), nullptr), 0);
  sd_bus_message_unref(signal);
}

// A portal that behaves as a test wants it to.
class FakePortal {
 public:
  enum class Behaviour {
    kOpensSilently,     // answers the call, and sends no Response
    kSucceeds,          // sends the Response of success after the answer
    kFails,             // sends a Response of failure after the answer
    kIsCancelled,       // the same for a user who closed the chooser
    kFailsBeforehand,   // sends the Response before the answer
    kFailsSomeoneElse,  // the failure is of another request
    kRefuses,           // answers with an error
    kKnowsNoAddresses,  // answers that it has no such interface
    kIsSilent,          // answers nothing
  };

  FakePortal(const std::string& address, Behaviour behaviour)
      : behaviour_(behaviour),
        service_(address, kPortal, [this](sd_bus_message* call) { handle(call); }) {}

  std::vector<std::string> opened() const {
    const std::scoped_lock lock(mutex_);
    return opened_;
  }

 private:
  void handle(sd_bus_message* call) {
    const char* window = nullptr;
    const char* url = nullptr;
    const char* option = nullptr;
    const char* token = nullptr;
    EXPECT_TRUE(sd_bus_message_is_method_call(call, kInterface, "OpenURI"));
    EXPECT_STREQ(sd_bus_message_get_path(call), "/org/freedesktop/portal/desktop");
    EXPECT_GT(sd_bus_message_read(call, "ssa{sv}", &window, &url, 1, &option, "s", &token), 0);
    EXPECT_STREQ(window, "");
    EXPECT_STREQ(option, "handle_token");
    {
      const std::scoped_lock lock(mutex_);
      opened_.emplace_back(url);
    }
    answer(call, requestPath(call, token));
  }

  void answer(sd_bus_message* call, const std::string& path) const {
    if (behaviour_ == Behaviour::kIsSilent) return;
    if (behaviour_ == Behaviour::kFailsBeforehand) respond(call, path, 2);
    if (behaviour_ == Behaviour::kRefuses) {
      sd_bus_reply_method_errorf(call, "org.freedesktop.portal.Error.NotAllowed", "no");
    } else if (behaviour_ == Behaviour::kKnowsNoAddresses) {
      sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no such method");
    } else {
      EXPECT_GE(sd_bus_reply_method_return(call, "o", path.c_str()), 0);
    }
    if (behaviour_ == Behaviour::kSucceeds) respond(call, path, 0);
    if (behaviour_ == Behaviour::kIsCancelled) respond(call, path, 1);
    if (behaviour_ == Behaviour::kFails) respond(call, path, 2);
    if (behaviour_ == Behaviour::kFailsSomeoneElse) respond(call, path + "x", 2);
  }

  const Behaviour behaviour_;
  mutable std::mutex mutex_;
  std::vector<std::string> opened_;
  support::BusService service_;  // last: its thread uses the others
};

using Behaviour = FakePortal::Behaviour;

class DesktopPortalTest : public testing::Test {
 protected:
  // Opens the address with the patience of a slow machine: a failure that comes has come.
  PortalOutcome open(std::chrono::milliseconds failurePatience = std::chrono::minutes(1)) const {
    return qvr::openByPortal(kURL, {bus.address(), std::chrono::minutes(1), failurePatience});
  }

  const support::PrivateBus bus;
};

TEST_F(DesktopPortalTest, TakesTheAddress) {
  const FakePortal portal(bus.address(), Behaviour::kSucceeds);
  EXPECT_EQ(open(), PortalOutcome::kTaken);
  EXPECT_EQ(portal.opened(), std::vector<std::string>{kURL});
}

TEST_F(DesktopPortalTest, FailureIsOneInTime) {
  for (const Behaviour behaviour :
       {Behaviour::kFails, Behaviour::kIsCancelled, Behaviour::kFailsBeforehand}) {
    const FakePortal portal(bus.address(), behaviour);
    EXPECT_EQ(open(), PortalOutcome::kFailed) << static_cast<int>(behaviour);
  }
}

TEST_F(DesktopPortalTest, WithoutAFailureInTimeTheAddressIsTaken) {
  for (const Behaviour behaviour : {Behaviour::kOpensSilently, Behaviour::kFailsSomeoneElse}) {
    const FakePortal portal(bus.address(), behaviour);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(open(std::chrono::milliseconds(200)), PortalOutcome::kTaken);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  }
}

TEST_F(DesktopPortalTest, RefusalIsAFailure) {
  const FakePortal portal(bus.address(), Behaviour::kRefuses);
  EXPECT_EQ(open(), PortalOutcome::kFailed);
}

TEST_F(DesktopPortalTest, SilenceIsAFailureAtTheDeadline) {
  const FakePortal portal(bus.address(), Behaviour::kIsSilent);
  const auto start = std::chrono::steady_clock::now();
  const std::chrono::milliseconds timeout(200);
  EXPECT_EQ(qvr::openByPortal(kURL, {bus.address(), timeout, timeout}), PortalOutcome::kFailed);
  EXPECT_GE(std::chrono::steady_clock::now() - start, timeout);
}

TEST_F(DesktopPortalTest, ThereMayBeNone) {
  EXPECT_EQ(open(), PortalOutcome::kAbsent);
  const FakePortal portal(bus.address(), Behaviour::kKnowsNoAddresses);
  EXPECT_EQ(open(), PortalOutcome::kAbsent);
  const std::chrono::milliseconds timeout(200);
  EXPECT_EQ(qvr::openByPortal(kURL, {"unix:path=/nonexistent/bus", timeout, timeout}),
            PortalOutcome::kAbsent);
  const support::SilentBus silent;
  EXPECT_EQ(qvr::openByPortal(kURL, {silent.address(), timeout, timeout}), PortalOutcome::kAbsent);
}

// The workspace in a sandbox: an xdg-open of the test's own says when it was used instead.
class SandboxedWorkspaceTest : public DesktopPortalTest {
 protected:
  bool openURL(std::vector<std::string> variables, const std::string& sandboxMark = "/nonexistent",
               const char* url = kURL) const {
    variables.push_back("DBUS_SESSION_BUS_ADDRESS=" + bus.address());
    qvr::DesktopWorkspaceOptions options{qvr::Environment(std::move(variables))};
    options.sandboxMark = sandboxMark;
    return qvr::makeRef<qvr::DesktopWorkspace>(options)->openURL(*qvr::URL::URLWithString(url));
  }

  const support::TemporaryFolder folder;
};

TEST_F(SandboxedWorkspaceTest, EachSignOfASandboxLeadsToThePortal) {
  const FakePortal portal(bus.address(), Behaviour::kSucceeds);
  EXPECT_TRUE(openURL({"SNAP=/snap/mail/1"}));
  EXPECT_TRUE(openURL({"container=flatpak"}));
  EXPECT_TRUE(openURL({}, folder.write("flatpak-info", "")));
  EXPECT_EQ(portal.opened().size(), 3U);
}

TEST_F(SandboxedWorkspaceTest, OutsideASandboxThePortalIsNotAsked) {
  const FakePortal portal(bus.address(), Behaviour::kSucceeds);
  EXPECT_FALSE(openURL({"SNAP=", "container=podman"}));
  EXPECT_TRUE(portal.opened().empty());
}

TEST_F(SandboxedWorkspaceTest, OpensNothingButWebAddresses) {
  const FakePortal portal(bus.address(), Behaviour::kSucceeds);
  EXPECT_FALSE(openURL({"container=flatpak"}, "/nonexistent", "file:///etc/passwd"));
  EXPECT_TRUE(portal.opened().empty());
}

TEST_F(SandboxedWorkspaceTest, WhatThePortalFailsAtIsNotTriedOtherwise) {
  const FakePortal portal(bus.address(), Behaviour::kFailsBeforehand);
  EXPECT_FALSE(openURL({"container=flatpak", "PATH=/usr/bin:/bin", "BROWSER=true"}));
}

TEST_F(SandboxedWorkspaceTest, WithoutAPortalTheBrowserVariableServes) {
  EXPECT_TRUE(openURL({"container=flatpak", "PATH=/usr/bin:/bin", "BROWSER=true"}));
  EXPECT_FALSE(openURL({"container=flatpak", "PATH=/usr/bin:/bin", "BROWSER=false"}));
}

}  // namespace
}  // namespace ports_test
