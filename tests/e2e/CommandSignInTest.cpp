// qvr-oauth2 sign-in, open-url, accounts and sign-out, as a user runs them.

#include <signal.h>

#include <regex>

#include "tests/e2e/CommandTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

class CommandSignInTest : public CommandTest {
 protected:
  // A sign-in whose browser the test plays itself, once its address has been printed.
  std::unique_ptr<support::ChildProcess> startWaiting(const std::string& user) {
    auto waiting = start({"sign-in", provider(), user, "--no-browser", "--timeout", "60"});
    EXPECT_TRUE(waiting->waitForError("press Enter") || waiting->waitForOutput("press Enter"))
        << waiting->error();
    return waiting;
  }

  // The redirect that the printed address leads to.
  std::string redirectOf(const support::ChildProcess& waiting, const std::string& user) {
    const std::string printed = waiting.output() + waiting.error();
    std::smatch found;
    EXPECT_TRUE(std::regex_search(printed, found, std::regex("https://\\S+"))) << printed;
    const auto browser = startBrowser(counterpart.certificateAuthority(), user, found.str());
    EXPECT_EQ(browser->wait(), 0) << browser->error();
    return browser->output().substr(0, browser->output().find('\n'));
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandSignInTest, testing::Values("Google", "Microsoft"));

TEST_P(CommandSignInTest, SignsInThroughTheBrowserAndServesTheToken) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const Result token = run({"token", provider(), kUser});
  EXPECT_EQ(token.status, 0) << token.error;
  EXPECT_EQ(token.error, "");
  ASSERT_FALSE(token.output.empty());
  EXPECT_EQ(token.output.back(), '\n');
  EXPECT_TRUE(counterpart.isActive(side(), token.output.substr(0, token.output.size() - 1)));
  EXPECT_EQ(run({"accounts"}).output, provider() + "\t" + kUser + "\n");
}

TEST_P(CommandSignInTest, ProviderNamesAreTakenInAnyCase) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  EXPECT_EQ(run({"token", side(), kUser}).status, 0);
  EXPECT_EQ(run({"token", provider() == "Google" ? "GOOGLE" : "MICROSOFT", kUser}).status, 0);
}

TEST_P(CommandSignInTest, TheAnswerOfAnotherBrowserCanBePasted) {
  const auto waiting = startWaiting(kUser);
  waiting->writeInput(redirectOf(*waiting, kUser) + "\n");
  EXPECT_EQ(waiting->wait(), 0) << waiting->error();
  EXPECT_EQ(run({"token", provider(), kUser}).status, 0);
}

TEST_P(CommandSignInTest, DenialIsSaidInWordsAndStoresNothing) {
  const Result result = run({"sign-in", provider(), kUser, "--timeout", "30"},
                            {{"BROWSER", browserFor(kUser, "--deny")}});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.error, HasSubstr("denied"));
  EXPECT_EQ(run({"token", provider(), kUser}).status, 3);
}

TEST_P(CommandSignInTest, AnotherAccountThanTheOneAskedForIsStoredWithAWarning) {
  const Result other = run({"sign-in", provider(), kUser, "--timeout", "30"},
                           {{"BROWSER", browserFor("bob@example.com")}});
  EXPECT_EQ(other.status, 0) << other.error;
  EXPECT_THAT(other.error, HasSubstr("signed in bob@example.com, but alice@example.com was asked"));
  EXPECT_THAT(other.error, HasSubstr("`qvr-oauth2 sign-out --local " + provider() + " " + kUser));
  EXPECT_EQ(run({"token", provider(), kUser}).status, 0);
}

TEST_P(CommandSignInTest, TheAccountAskedForIsNotWarnedAbout) {
  const Result result = run({"sign-in", provider(), "ALICE@example.com", "--timeout", "30"},
                            {{"BROWSER", browserFor(kUser)}});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_THAT(result.error, Not(HasSubstr("Warning")));
}

TEST_P(CommandSignInTest, FirstUseChoosesAKeychainAndSaysSoOnce) {
  EXPECT_THAT(run({"accounts"}).error, HasSubstr("tokens are kept in encrypted files"));
  EXPECT_THAT(run({"accounts"}).error, Not(HasSubstr("encrypted files")));
}

TEST_P(CommandSignInTest, AnInterruptCancelsTheAttempt) {
  const auto waiting = startWaiting(kUser);
  waiting->signal(SIGINT);
  EXPECT_EQ(waiting->wait(), 1);
  EXPECT_THAT(waiting->error(), HasSubstr("cancelled"));
  EXPECT_EQ(counterpart.count(side(), "codeExchanges"), 0);
}

TEST_P(CommandSignInTest, TwoSignInsAtOnceEachGetTheirOwnRedirect) {
  const auto alice = startWaiting("alice@example.com");
  const auto bob = startWaiting("bob@example.com");
  const std::string forAlice = redirectOf(*alice, "alice@example.com");
  const std::string forBob = redirectOf(*bob, "bob@example.com");
  EXPECT_EQ(run({"open-url", forBob}).status, 0);
  EXPECT_EQ(bob->wait(), 0) << bob->error();
  EXPECT_EQ(run({"open-url", forAlice}).status, 0);
  EXPECT_EQ(alice->wait(), 0) << alice->error();
  EXPECT_EQ(run({"accounts"}).output,
            provider() + "\talice@example.com\n" + provider() + "\tbob@example.com\n");
}

TEST_P(CommandSignInTest, ARedirectThatNobodyWaitsForIsSaidSo) {
  const auto waiting = startWaiting(kUser);
  const std::string redirect = redirectOf(*waiting, kUser);
  EXPECT_EQ(run({"open-url", redirect}).status, 0);
  EXPECT_EQ(waiting->wait(), 0) << waiting->error();
  const Result again = run({"open-url", redirect});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.error, HasSubstr("No sign-in waits"));
  EXPECT_THAT(again.error, Not(HasSubstr("code="))) << "the code is a secret";
}

TEST_P(CommandSignInTest, TheWaitEndsAtItsDeadline) {
  const Result result = run({"sign-in", provider(), kUser, "--no-browser", "--timeout", "1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.error, "");
}

TEST_P(CommandSignInTest, SignOutRemovesTheItemAndRevokesWhereItCan) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const std::string token = run({"token", provider(), kUser}).output;
  const Result result = run({"sign-out", provider(), kUser});
  EXPECT_EQ(result.status, 0) << result.error;
  const bool revokes = provider() == "Google";
  EXPECT_EQ(counterpart.count(side(), "revocations"), revokes ? 1 : 0);
  EXPECT_EQ(counterpart.isActive(side(), token.substr(0, token.size() - 1)), !revokes);
  EXPECT_EQ(run({"token", provider(), kUser}).status, 3);
  EXPECT_EQ(run({"sign-out", provider(), kUser}).status, 3);
}

}  // namespace
}  // namespace e2e
