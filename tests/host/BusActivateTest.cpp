// `activate`, started by the bus or beside it, for redirects while no sign-in has the name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>

#include "host/Activate.h"
#include "host/ExitStatus.h"
#include "tests/host/BusDesktop.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/host/ScopedVariable.h"
#include "tests/host/WaitingSignIn.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kName = "org.qvroauth2.command.test";
constexpr const char* kRedirect = "m.x://auth?code=very-secret-code&state=the-state";
constexpr double kBriefly = 0.2;

class BusActivateTest : public testing::Test {
 protected:
  BusActivateTest() { EXPECT_EQ(mkdir(folder.c_str(), 0700), 0); }

  // The answers to URLs that are opened one after the other while the command runs.
  std::vector<std::string> openWhileRunning(const std::vector<std::string>& urls) {
    std::vector<std::string> answers;
    auto opener = std::async(std::launch::async, [&] {
      for (const std::string& url : urls)
        answers.push_back(desktop.open(kName, url));
    });
    const Printed printed = collect([] { return host::runActivation(kName, kBriefly); });
    opener.wait();
    EXPECT_EQ(printed.status, host::kDone);
    EXPECT_EQ(printed.output, "");
    error = printed.error;
    EXPECT_THAT(error, Not(HasSubstr("very-secret-code")));
    for (const std::string& text : desktop.notifications())
      EXPECT_THAT(text, Not(HasSubstr("very-secret-code")));
    return answers;
  }

  static support::TemporaryFolder& prepared(support::TemporaryFolder& services) {
    keepForName(services, kName);
    return services;
  }

  support::TemporaryFolder runtime;
  const std::string folder = runtime.file("qvr-oauth2");
  support::TemporaryFolder services;
  BusDesktop desktop{prepared(services).path()};
  ScopedVariable runtimeVariable{"XDG_RUNTIME_DIR", runtime.path()};
  ScopedVariable busVariable{"DBUS_SESSION_BUS_ADDRESS", desktop.bus.address()};
  std::string error;
};

TEST_F(BusActivateTest, RedirectIsHandedToTheSignInThatWaits) {
  WaitingSignIn signIn(folder, "the-state");
  EXPECT_THAT(openWhileRunning({kRedirect}), ElementsAre(""));
  EXPECT_EQ(signIn.received(), kRedirect);
  EXPECT_EQ(error, "");
  EXPECT_THAT(desktop.notifications(), IsEmpty());
}

TEST_F(BusActivateTest, NobodyWaitingIsShownAndLogged) {
  EXPECT_THAT(openWhileRunning({kRedirect}), ElementsAre(Not("")));
  EXPECT_THAT(error, HasSubstr("No sign-in waits"));
  EXPECT_THAT(desktop.notifications(), ElementsAre(HasSubstr("No sign-in waits")));
}

TEST_F(BusActivateTest, EachOfSeveralRedirectsIsDealtWith) {
  WaitingSignIn signIn(folder, "the-state");
  EXPECT_THAT(openWhileRunning({"word", kRedirect, "m.x://auth?code=c"}),
              ElementsAre(Not(""), "", Not("")));
  EXPECT_EQ(signIn.received(), kRedirect);
  EXPECT_THAT(desktop.notifications(),
              ElementsAre(HasSubstr("not a URL"), HasSubstr("carries no state")));
}

TEST_F(BusActivateTest, URLOfOneMebibyteIsDelivered) {
  WaitingSignIn signIn(folder, "the-state");
  std::string url = kRedirect + std::string("&x=");
  url += std::string(host::kMaximumRedirectSize - url.size(), 'x');
  EXPECT_THAT(openWhileRunning({url}), ElementsAre(""));
  EXPECT_EQ(signIn.received().size(), host::kMaximumRedirectSize);
}

TEST_F(BusActivateTest, LongerURLIsRefused) {
  EXPECT_THAT(openWhileRunning({kRedirect + std::string(host::kMaximumRedirectSize, 'x')}),
              ElementsAre(HasSubstr("1 MiB")));
}

TEST_F(BusActivateTest, EndsWithTheBus) {
  auto crash = std::async(std::launch::async, [this] {
    desktop.open(kName, "word");  // answered, so the command is there
    desktop.bus.crash();
  });
  const Printed printed = collect([] { return host::runActivation(kName, 3600); });
  crash.wait();
  EXPECT_EQ(printed.status, host::kDone);
}

TEST_F(BusActivateTest, NoBusFails) {
  desktop.bus.crash();
  const Printed printed = collect([] { return host::activate(kName); });
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr("qvr-oauth2: "));
}

TEST_F(BusActivateTest, NameThatIsNoneFails) {
  const Printed printed = collect([] { return host::activate("no name"); });
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr("no name"));
}

TEST_F(BusActivateTest, EndsWithTheCommandsTime) {
  const ScopedDeadline deadline(0.3);
  const Printed printed = collect([] { return host::runActivation(kName, 600); });
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_TRUE(deadline.endedSoon());
}

}  // namespace
}  // namespace host_test
