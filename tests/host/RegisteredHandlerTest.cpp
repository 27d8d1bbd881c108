// From the browser to the waiting sign-in without a bus: through the desktop entry.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/DesktopHome.h"
#include "tests/host/ProcessSignIn.h"

namespace host_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class RegisteredHandlerTest : public testing::TestWithParam<std::string> {
 protected:
  RegisteredHandlerTest() { EXPECT_EQ(home.run({"register"}).status, 0); }

  DesktopHome home;
};
INSTANTIATE_TEST_SUITE_P(Providers, RegisteredHandlerTest, testing::Values("Google", "Microsoft"));

TEST_P(RegisteredHandlerTest, URLThatTheDesktopOpensReachesTheSignIn) {
  ProcessSignIn signIn(home, GetParam());
  const Finished opened = home.runProgram({"xdg-open", signIn.refusal()});
  EXPECT_EQ(opened.status, 0) << opened.error;
  EXPECT_TRUE(signIn.wasRefused()) << signIn.process().error();
}

TEST_P(RegisteredHandlerTest, SchemeInAnotherCaseReachesTheSignIn) {
  ProcessSignIn signIn(home, GetParam());
  std::string url = signIn.refusal();
  url[0] = static_cast<char>(url[0] - 'a' + 'A');
  const Finished opened = home.run({"open-url", url});
  EXPECT_EQ(opened.status, 0) << opened.error;
  EXPECT_TRUE(signIn.wasRefused()) << signIn.process().error();
}

TEST_P(RegisteredHandlerTest, EachOfTwoSignInsGetsItsOwnRedirect) {
  ProcessSignIn first(home, GetParam());
  ProcessSignIn second(home, GetParam());
  EXPECT_EQ(home.runProgram({"xdg-open", second.refusal()}).status, 0);
  EXPECT_TRUE(second.wasRefused());
  EXPECT_EQ(home.runProgram({"xdg-open", first.refusal()}).status, 0);
  EXPECT_TRUE(first.wasRefused());
}

TEST_P(RegisteredHandlerTest, RedirectThatNobodyWaitsForFailsInWords) {
  ProcessSignIn signIn(home, GetParam());
  const std::string url = signIn.refusal();
  EXPECT_EQ(home.runProgram({"xdg-open", url}).status, 0);
  EXPECT_TRUE(signIn.wasRefused());
  const Finished again = home.runProgram({"xdg-open", url});
  EXPECT_NE(again.status, 0);
  EXPECT_THAT(again.error, HasSubstr("No sign-in waits"));
  EXPECT_THAT(again.error, Not(HasSubstr("state=")));
}

}  // namespace
}  // namespace host_test
