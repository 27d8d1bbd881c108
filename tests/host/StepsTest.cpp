// What --verbose shows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/ExitStatus.h"
#include "host/Secrets.h"
#include "host/Steps.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/host/SignInFixture.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

std::string shown(const std::function<void()>& function) {
  const Printed printed = collect([&] {
    function();
    return 0;
  });
  EXPECT_EQ(printed.output, "");
  return printed.error;
}

TEST(Steps, AreNotShownToWhoDidNotAsk) {
  EXPECT_FALSE(host::stepsAreShown());
  EXPECT_EQ(shown([] { host::step("Something happens."); }), "");
}

TEST(Steps, HaveALineEachWithTheTimeThatHasPassed) {
  const ScopedSteps steps;
  EXPECT_TRUE(host::stepsAreShown());
  EXPECT_THAT(shown([] {
                host::step("One thing happens.");
                host::step("Then\nanother.");
              }),
              MatchesRegex("qvr-oauth2: \\[0\\.[0-9][0-9][0-9]\\] One thing happens\\.\n"
                           "qvr-oauth2: \\[0\\.[0-9][0-9][0-9]\\] Then\\?another\\.\n"));
}

TEST(Steps, ShowNoSecretThatSlipsThrough) {
  const ScopedSteps steps;
  host::keepSecret("secret-of-a-step");
  EXPECT_THAT(shown([] { host::step("It is secret-of-a-step."); }),
              AllOf(HasSubstr("It is {length = 16}."), Not(HasSubstr("secret-of"))));
}

TEST(Steps, NameASecretByItsLength) {
  EXPECT_EQ(host::lengthOf("four"), "{length = 4}");
  EXPECT_EQ(host::lengthOf(""), "{length = 0}");
}

// The program itself, with a configuration that has a secret.
class VerboseCommand : public testing::Test {
 protected:
  VerboseCommand() {
    folder.write("config.toml",
                 "bundle_identifier = \"org.example.mail\"\n"
                 "[google]\nclient_identifier = \"example-client\"\n"
                 "client_secret = \"secret-of-the-configuration\"\n"
                 "custom_uri_scheme = \"com.example.mail\"\n"
                 "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\n"
                 "key_file = \"key/key\"\n");
  }

  int run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {QVR_OAUTH2_PROGRAM, "--config", folder.file("config.toml")});
    support::ChildProcess child({arguments, {{"XDG_RUNTIME_DIR", folder.path()}}});
    const int status = child.wait();
    output = child.output();
    error = child.error();
    return status;
  }

  const support::TemporaryFolder folder;
  std::string output;
  std::string error;
};

TEST_F(VerboseCommand, TellsTheConfigurationTheLockTheKeychainAndWhatIsDoneWithIt) {
  EXPECT_EQ(run({"--verbose", "--timeout", "50", "accounts"}), host::kDone);
  EXPECT_THAT(output, IsEmpty());
  EXPECT_THAT(error, AllOf(HasSubstr("] accounts, within 50 s\n"),
                           HasSubstr("] configuration: " + folder.file("config.toml") +
                                     " for org.example.mail: Google is registered as "
                                     "example-client (scheme com.example.mail, secret {length = "
                                     "27}), Microsoft is not registered; servers "
                                     "accounts.google.com"),
                           HasSubstr("] waiting for the lock of " + folder.file("config.toml") +
                                     ", to share it\n"),
                           HasSubstr("] keychain: the encrypted files in " + folder.file("items") +
                                     ", sealed with the key in " + folder.file("key/key") + "\n"),
                           HasSubstr("] keychain: list the items: ")));
  EXPECT_THAT(error, Not(HasSubstr("secret-of-the-configuration")));
}

TEST_F(VerboseCommand, LeavesStandardOutputAsItIs) {
  EXPECT_EQ(run({"config", "--show"}), host::kDone);
  const std::string quiet = output;
  EXPECT_EQ(error, "");
  EXPECT_EQ(run({"-v", "config", "--show"}), host::kDone);
  EXPECT_EQ(output, quiet);
  EXPECT_THAT(error, HasSubstr("] configuration: "));
}

TEST_F(VerboseCommand, TellsOfARedirectByTheNamesOfItsFieldsAndTheirLengths) {
  EXPECT_EQ(run({"--verbose", "open-url",
                 "com.example.mail:/oauth2/auth?state=state-of-nobody&code=code%2Dof-nobody"}),
            host::kFailed);
  EXPECT_THAT(error, HasSubstr("com.example.mail:/oauth2/auth?(state={length = 15}, "
                               "code={length = 14})"));
  EXPECT_THAT(error, AllOf(Not(HasSubstr("-of-nobody")), Not(HasSubstr("%2D"))));
}

// Steps are shown before the session is installed, and while the rest is there.
class VerboseSignIn : private ScopedSteps, public host::SignInTest {
 protected:
  // What stands behind the name in the form that was sent.
  std::string sent(const std::string& name) const {
    const std::string request = session->requests().at(0);
    const std::size_t start = request.find(name + "=") + name.size() + 1;
    return request.substr(start, request.find('&', start) - start);
  }
};

TEST_F(VerboseSignIn, TellsItsWayFromTheAddressToTheToken) {
  answerWithAToken();
  acceptInTheBrowser();
  ASSERT_EQ(run(), host::kDone) << error;
  EXPECT_EQ(out, "Signed in user@example.org at Microsoft.\n");
  for (const char* const told :
       {"] authorization request: https://login.microsoft.test/", "state={length = ",
        "login_hint=user@example.org", "] the redirect may be pasted, or come over the socket in ",
        "] starting the browser", "] an address came: msauth.org.example.mail://auth",
        "(code={length = 24}, state={length = ", "] exchanging the code ({length = 24})",
        "] request 1: POST https://login.microsoft.test/", "grant_type=authorization_code",
        "code_verifier={length = 128}", "] request 1: after ", " ms status 200, ",
        "{access_token: {length = 16}, token_type: Bearer, expires_in: 3599, "})
    EXPECT_THAT(error, HasSubstr(told));
}

TEST_F(VerboseSignIn, ShowsNoneOfItsSecrets) {
  answerWithAToken();
  acceptInTheBrowser();
  ASSERT_EQ(run(), host::kDone) << error;
  ASSERT_GE(sent("code_verifier").size(), 43U);
  for (const std::string& secret :
       {std::string("the-code-of-this-sign-in"), std::string("the-access-token"),
        std::string("the-refresh-token"), sent("code_verifier")})
    EXPECT_THAT(error, Not(HasSubstr(secret)));
}

}  // namespace
}  // namespace host_test
