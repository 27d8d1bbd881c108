// Sign-in on a desktop as a user has it: qvr-oauth2, the default browser already open, the redirect
// delivered by the desktop, the record in the keyring. The browser is Debian's own, named by the
// environment variable QVR_TEST_BROWSER: "chromium" or "firefox-esr".

#include <signal.h>

#include <cstdlib>
#include <filesystem>

#include "tests/e2e/CommandTest.h"
#include "tests/e2e/desktop/BrowserDesktop.h"
#include "tests/e2e/desktop/BrowserSetup.h"

namespace e2e {
namespace {

using support::ChildProcess;
using testing::HasSubstr;
using testing::Not;

std::string browserName() {
  const char* const name = std::getenv("QVR_TEST_BROWSER");
  if (name == nullptr) throw std::runtime_error("QVR_TEST_BROWSER names no browser");
  return name;
}

class BrowserSignInTest : public CommandTest {
 protected:
  static constexpr double kPatience = 90;  // seconds that only a hang exceeds

  BrowserSignInTest() {
    browser_ = makeDefaultBrowser(browserName(),
                                  {.certificateAuthority = counterpart.certificateAuthority(),
                                   .origins = {origin("google"), origin("microsoft")},
                                   .schemes = {counterpart.ready("google", "scheme"),
                                               "msauth." + counterpart.ready("bundleIdentifier")}},
                                  folder);
  }

  void SetUp() override {
    const Result result = runHere({"register"});
    ASSERT_EQ(result.status, 0) << result.error;
  }

  // The command in the desktop session.
  Result runHere(const std::vector<std::string>& arguments) {
    return run(arguments, desktop_.environment());
  }
  std::unique_ptr<ChildProcess> startSignIn() {
    return start({"sign-in", provider(), kUser, "--timeout", "80"}, desktop_.environment());
  }

  // A person who has the browser open, and will sign in as `user` when asked to.
  std::unique_ptr<ChildProcess> openBrowser(const std::string& user, bool denies = false) {
    std::vector<std::string> arguments = {QVR_NODE,     QVR_E2E_FOLDER "/desktop/driver/drive.mjs",
                                          "--program",  browser_,
                                          "--origin",   origin(side()),
                                          "--user",     user,
                                          "--password", "correct horse",
                                          "--pictures", std::filesystem::temp_directory_path()};
    if (denies) arguments.emplace_back("--deny");
    auto person = desktop_.start(arguments);
    EXPECT_TRUE(person->waitForOutput("ready\n", kPatience)) << person->error();
    return person;
  }

  // Waits until the person has answered and the command has ended. A failure tells what the person
  // saw.
  static void expectEnd(ChildProcess& signIn, int status, ChildProcess& person) {
    if (!person.waitForOutput("decided\n", kPatience)) {
      signIn.signal(SIGINT);
      signIn.wait();
      FAIL() << signIn.error() << person.output() << person.error();
    }
    const int actual = signIn.wait(kPatience);
    if (actual == status) return;
    person.writeInput("\n");
    person.waitForOutput(".png\n", kPatience);
    FAIL() << "status " << actual << "\n" << signIn.error() << person.output() << person.error();
  }

  // The browser closes, and the person with it.
  static void leave(ChildProcess& person) {
    person.closeInput();
    EXPECT_EQ(person.wait(kPatience), 0) << person.error();
  }

  // What another client of the keyring finds of the account.
  std::unique_ptr<ChildProcess> lookUp() {
    const std::string service =
        counterpart.ready("bundleIdentifier") + "." + provider() + ".OAuth2Token";
    return desktop_.start({"secret-tool", "lookup", "service", service, "account", kUser});
  }

  std::string origin(const std::string& provider) { return counterpart.ready(provider, "issuer"); }

  BrowserDesktop desktop_{folder};

 private:
  std::string browser_;
};
INSTANTIATE_TEST_SUITE_P(Providers, BrowserSignInTest, testing::Values("Google", "Microsoft"));

TEST_P(BrowserSignInTest, TheRedirectComesBackByItselfAndTheKeyringKeepsTheRecord) {
  const auto person = openBrowser(kUser);
  const auto signIn = startSignIn();
  ASSERT_NO_FATAL_FAILURE(expectEnd(*signIn, 0, *person));
  EXPECT_THAT(person->output(), HasSubstr("suggested: " + std::string(kUser) + "\n"))
      << "the provider was told whom to ask for";
  EXPECT_THAT(signIn->error(), Not(HasSubstr("arning")));

  const Result token = runHere({"token", provider(), kUser});
  EXPECT_EQ(token.status, 0) << token.error;
  EXPECT_TRUE(counterpart.isActive(side(), token.output.substr(0, token.output.find('\n'))));

  const auto found = lookUp();
  EXPECT_EQ(found->wait(), 0) << found->error();
  EXPECT_FALSE(found->output().empty());
  EXPECT_FALSE(std::filesystem::exists(folder.file("data/qvr-oauth2/items")));
  leave(*person);
}

TEST_P(BrowserSignInTest, WhereTheDesktopKnowsTheBusNoProgramIsRunForTheRedirect) {
  desktop_.openOverTheBus();
  const auto watch = desktop_.watchBus();
  const auto person = openBrowser(kUser);
  const auto signIn = startSignIn();
  ASSERT_NO_FATAL_FAILURE(expectEnd(*signIn, 0, *person));
  EXPECT_TRUE(watch->waitForOutput("member=Open")) << "the code was in a process's arguments";
  leave(*person);
}

TEST_P(BrowserSignInTest, DenialComesBackTooAndStoresNothing) {
  const auto person = openBrowser(kUser, true);
  const auto signIn = startSignIn();
  ASSERT_NO_FATAL_FAILURE(expectEnd(*signIn, 1, *person));
  EXPECT_THAT(signIn->error(), HasSubstr("denied"));
  EXPECT_EQ(counterpart.count(side(), "codeExchanges"), 0);
  EXPECT_EQ(runHere({"token", provider(), kUser}).status, 3);
  EXPECT_NE(lookUp()->wait(), 0) << "an item was stored";
  leave(*person);
}

TEST_P(BrowserSignInTest, AnotherAccountThanTheOneAskedForIsNoticed) {
  const auto person = openBrowser("bob@example.com");
  const auto signIn = startSignIn();
  ASSERT_NO_FATAL_FAILURE(expectEnd(*signIn, 0, *person));
  EXPECT_THAT(person->output(), HasSubstr("suggested: " + std::string(kUser) + "\n"));
  EXPECT_THAT(signIn->error(), HasSubstr("bob@example.com"));
  leave(*person);
}

}  // namespace
}  // namespace e2e
