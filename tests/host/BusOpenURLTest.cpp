// `open-url` on a desktop: nobody sees its standard error there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/Command.h"
#include "tests/host/BusDesktop.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedVariable.h"
#include "tests/host/WaitingSignIn.h"

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BusOpenURLTest : public testing::Test {
 protected:
  BusOpenURLTest() { EXPECT_EQ(mkdir(folder.c_str(), 0700), 0); }

  int run(const std::string& url) {
    return collect([&] { return host::openURL(url); }).status;
  }

  support::TemporaryFolder runtime;
  const std::string folder = runtime.file("qvr-oauth2");
  BusDesktop desktop;
  ScopedVariable runtimeVariable{"XDG_RUNTIME_DIR", runtime.path()};
  ScopedVariable busVariable{"DBUS_SESSION_BUS_ADDRESS", desktop.bus.address()};
};

TEST_F(BusOpenURLTest, RedirectThatNobodyWaitsForIsShown) {
  EXPECT_EQ(run("m.x://auth?code=very-secret-code&state=s"), host::kFailed);
  EXPECT_THAT(desktop.notifications(),
              ElementsAre(testing::AllOf(HasSubstr("No sign-in waits"),
                                         testing::Not(HasSubstr("very-secret-code")))));
}

TEST_F(BusOpenURLTest, UnusableURLIsShown) {
  EXPECT_EQ(run("two words"), host::kFailed);
  EXPECT_THAT(desktop.notifications(), ElementsAre(HasSubstr("not a URL")));
}

TEST_F(BusOpenURLTest, DeliveredRedirectIsNotShown) {
  WaitingSignIn signIn(folder, "s");
  EXPECT_EQ(run("m.x://auth?code=c&state=s"), host::kDone);
  EXPECT_NE(signIn.received(), "");
  EXPECT_THAT(desktop.notifications(), IsEmpty());
}

}  // namespace
}  // namespace host_test
