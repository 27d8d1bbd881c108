// From the browser to the waiting sign-in over the session bus, as `register` arranged it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/BusDesktop.h"
#include "tests/host/DesktopHome.h"
#include "tests/host/ProcessSignIn.h"
#include "tests/host/ScopedVariable.h"

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kName = DesktopHome::kIdentifier;

class BusRegisterTest : public testing::Test {
 protected:
  BusRegisterTest() {
    home.environment["DBUS_SESSION_BUS_ADDRESS"] = desktop.bus.address();
    EXPECT_EQ(home.run({"register"}).status, 0);
  }

  DesktopHome home;
  // The bus passes it on to what it starts.
  ScopedVariable runtimeVariable{"XDG_RUNTIME_DIR", home.path("run")};
  // The folder is not there when the bus starts.
  BusDesktop desktop{home.path("data/dbus-1/services")};
};

TEST_F(BusRegisterTest, RunningSignInTakesItsRedirectItself) {
  ProcessSignIn signIn(home, "Google");
  EXPECT_EQ(desktop.open(kName, signIn.refusal()), "");
  EXPECT_TRUE(signIn.wasRefused()) << signIn.process().error();
}

TEST_F(BusRegisterTest, OwnerOfTheNamePassesARedirectOn) {
  ProcessSignIn owner(home, "Google");
  ProcessSignIn other(home, "Microsoft");
  EXPECT_EQ(desktop.open(kName, other.refusal()), "");
  EXPECT_TRUE(other.wasRefused()) << other.process().error();
  EXPECT_EQ(desktop.open(kName, owner.refusal()), "");
  EXPECT_TRUE(owner.wasRefused()) << owner.process().error();
  EXPECT_THAT(desktop.notifications(), IsEmpty());
}

TEST_F(BusRegisterTest, NextSignInHasTheNameWhenItsOwnerEnds) {
  ProcessSignIn owner(home, "Google");
  ProcessSignIn other(home, "Google");
  EXPECT_EQ(desktop.open(kName, owner.refusal()), "");
  EXPECT_TRUE(owner.wasRefused());
  EXPECT_EQ(desktop.open(kName, other.refusal()), "");
  EXPECT_TRUE(other.wasRefused());
}

TEST_F(BusRegisterTest, OwnerThatIsKilledLeavesTheNameToTheNext) {
  ProcessSignIn owner(home, "Google");
  ProcessSignIn other(home, "Google");
  owner.process().signal(SIGKILL);
  owner.process().wait();
  EXPECT_EQ(desktop.open(kName, other.refusal()), "");
  EXPECT_TRUE(other.wasRefused());
}

TEST_F(BusRegisterTest, BusStartsTheCommandAtOnceAfterRegistering) {
  EXPECT_THAT(desktop.open(kName, "com.example.mail:/oauth2/auth?code=c&state=nobodys"),
              HasSubstr("no use for"));
  EXPECT_THAT(desktop.notifications(), ElementsAre(HasSubstr("No sign-in waits")));
}

TEST_F(BusRegisterTest, CommandThatTheBusStartedHandsTheRedirectToALaterSignIn) {
  desktop.open(kName, "word");  // has the bus start it
  ProcessSignIn signIn(home, "Microsoft");
  EXPECT_EQ(desktop.open(kName, signIn.refusal()), "");
  EXPECT_TRUE(signIn.wasRefused()) << signIn.process().error();
}

TEST_F(BusRegisterTest, AfterUnregisterTheBusStartsNothing) {
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  EXPECT_THAT(desktop.open(kName, "word"), HasSubstr(kName));
  EXPECT_THAT(desktop.notifications(), IsEmpty());
}

}  // namespace
}  // namespace host_test
