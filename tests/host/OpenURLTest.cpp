// `open-url`, against listeners as a waiting sign-in has them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <cstdlib>
#include <future>

#include "host/Command.h"
#include "host/Paths.h"
#include "host/RedirectSocket.h"
#include "tests/host/DesktopHome.h"
#include "tests/host/ScopedVariable.h"
#include "tests/host/SignInFixture.h"
#include "tests/host/WaitingSignIn.h"
#include "tests/support/ChildProcess.h"

namespace host {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kRedirect = "m.x://auth?code=very-secret-code&state=the-state";

class OpenURLTest : public testing::Test {
 protected:
  OpenURLTest() { EXPECT_EQ(mkdir(folder.c_str(), 0700), 0); }

  int run(const std::string& url) {
    const host_test::Printed printed = host_test::collect([&] { return openURL(url); });
    error = printed.error;
    EXPECT_EQ(printed.output, "");
    EXPECT_THAT(error, Not(HasSubstr("very-secret-code")));
    return printed.status;
  }

  // Runs the command while a sign-in with this state waits, and answers as the test says.
  int runBesideSignIn(const std::string& url, RedirectAnswer answer) {
    std::optional<Failure> failure;
    const auto listener = RedirectListener::listen(folder, "the-state", &failure);
    EXPECT_TRUE(listener);
    auto status = std::async(std::launch::async, [&] { return run(url); });
    while (received.empty()) {
      pollfd waiting{listener->fileDescriptor(), POLLIN, 0};
      if (poll(&waiting, 1, 20'000) <= 0) break;
      listener->serve([&](const std::string& redirect) {
        received.push_back(redirect);
        return answer;
      });
    }
    return status.get();
  }

  support::TemporaryFolder runtime;
  host_test::ScopedVariable runtimeVariable{"XDG_RUNTIME_DIR", runtime.path()};
  host_test::ScopedVariable noBus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + runtime.file("bus")};
  const std::string folder = runtime.file("qvr-oauth2");
  std::vector<std::string> received;
  std::string error;
};

TEST_F(OpenURLTest, RedirectIsHandedToTheSignInThatWaits) {
  EXPECT_EQ(runBesideSignIn(kRedirect, RedirectAnswer::kAccepted), kDone);
  EXPECT_THAT(received, testing::ElementsAre(kRedirect));
  EXPECT_THAT(error, HasSubstr("was handed to the sign-in"));
}

TEST_F(OpenURLTest, AnswersOfTheSignInAreSaidInWords) {
  EXPECT_EQ(runBesideSignIn(kRedirect, RedirectAnswer::kNotThisSignIn), kFailed);
  EXPECT_THAT(error, HasSubstr("another sign-in"));
  received.clear();
  EXPECT_EQ(runBesideSignIn(kRedirect, RedirectAnswer::kRefused), kFailed);
  EXPECT_THAT(error, HasSubstr("cannot use this address"));
}

TEST_F(OpenURLTest, NobodyWaitingIsSaid) {
  EXPECT_EQ(run(kRedirect), kFailed);
  EXPECT_THAT(error, AllOf(HasSubstr("No sign-in waits"), HasSubstr("sign-in")));
}

TEST_F(OpenURLTest, RuntimeFolderThatIsNotThereYetMeansNobodyWaits) {
  ASSERT_EQ(rmdir(folder.c_str()), 0);
  EXPECT_EQ(run(kRedirect), kFailed);
  EXPECT_THAT(error, HasSubstr("No sign-in waits"));
}

TEST_F(OpenURLTest, RuntimeFolderThatOthersCanEnterIsNotTrusted) {
  ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
  EXPECT_EQ(run(kRedirect), kFailed);
  EXPECT_THAT(error, HasSubstr("open to other users"));
}

TEST_F(OpenURLTest, TextThatIsNoURLIsSaid) {
  for (const char* const text :
       {"", "two words", "word?state=s", "m.x://auth?code=very-secret-code&state=%zz"}) {
    EXPECT_EQ(run(text), kFailed) << text;
    EXPECT_THAT(error, HasSubstr("not a URL"));
  }
}

TEST_F(OpenURLTest, URLWithoutAStateIsSaid) {
  EXPECT_EQ(run("m.x://auth?code=very-secret-code"), kFailed);
  EXPECT_THAT(error, HasSubstr("carries no state"));
}

TEST_F(OpenURLTest, LongestURLIsDelivered) {
  std::string url = kRedirect + std::string("&x=");
  url += std::string(kMaximumRedirectSize - url.size(), 'x');
  EXPECT_EQ(runBesideSignIn(url, RedirectAnswer::kAccepted), kDone);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].size(), kMaximumRedirectSize);
}

TEST_F(OpenURLTest, LongerURLIsRefused) {
  EXPECT_EQ(run(kRedirect + std::string(kMaximumRedirectSize, 'x')), kFailed);
  EXPECT_THAT(error, HasSubstr("longer than 1 MiB"));
}

// The command in a process of its own.
class OpenURLProgramTest : public testing::Test {
 protected:
  OpenURLProgramTest() { EXPECT_FALSE(makePrivateFolder(folder)); }

  host_test::DesktopHome home;
  const std::string folder = home.path("run/qvr-oauth2");
};

TEST_F(OpenURLProgramTest, NoURLAndTwoAreWrongUsage) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"open-url"}, {"open-url", kRedirect, kRedirect}}) {
    const host_test::Finished result = home.run(arguments);
    EXPECT_EQ(result.status, kUsage);
    EXPECT_THAT(result.error, Not(HasSubstr("very-secret-code")));
  }
}

TEST_F(OpenURLProgramTest, HyphenReadsTheURLFromStandardInput) {
  for (const char* const end : {"", "\n", " \r\nmore"}) {
    host_test::WaitingSignIn signIn(folder, "the-state");
    const host_test::Finished result = home.run({"open-url", "-"}, std::string(kRedirect) + end);
    EXPECT_EQ(result.status, kDone) << result.error;
    EXPECT_EQ(signIn.received(), kRedirect);
  }
}

TEST_F(OpenURLProgramTest, EmptyStandardInputIsNoURL) {
  for (const char* const input : {"", "\n", "  "}) {
    const host_test::Finished result = home.run({"open-url", "-"}, input);
    EXPECT_EQ(result.status, kFailed);
    EXPECT_THAT(result.error, HasSubstr("not a URL"));
  }
}

TEST_F(OpenURLProgramTest, OneMebibyteIsReadFromStandardInputAndMoreIsRefused) {
  std::string url = kRedirect + std::string("&x=");
  url += std::string(kMaximumRedirectSize - url.size(), 'x');
  host_test::WaitingSignIn signIn(folder, "the-state");
  EXPECT_EQ(home.run({"open-url", "-"}, url).status, kDone);
  EXPECT_EQ(signIn.received(), url);
  const host_test::Finished longer = home.run({"open-url", "-"}, url + "x");
  EXPECT_EQ(longer.status, kFailed);
  EXPECT_THAT(longer.error, HasSubstr("longer than 1 MiB"));
}

// Linux passes no argument of that length: whoever starts the command learns it, and it is not run.
TEST_F(OpenURLProgramTest, OneMebibyteIsNoArgument) {
  const host_test::Finished result =
      home.runProgram({"/bin/sh", "-c", "url=$(cat \"$0\"); \"$1\" open-url \"$url\"",
                       [this] {
                         home.write("url", kRedirect + std::string(kMaximumRedirectSize, 'x'));
                         return home.path("url");
                       }(),
                       QVR_OAUTH2_PROGRAM});
  EXPECT_EQ(result.status, 126);
  EXPECT_THAT(result.error, HasSubstr("too long"));
}

}  // namespace

}  // namespace host
