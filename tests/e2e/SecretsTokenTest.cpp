// Serving, refreshing and telling of a token shows no secret but the token, where it is asked for.

#include <signal.h>

#include <filesystem>

#include "tests/e2e/SecretsTest.h"

namespace e2e {
namespace {

class SecretsTokenTest : public SecretsTest {
 protected:
  // A refresh that brings tokens with characters that an encoding changes, as real ones have.
  void refreshToOddTokens() {
    const std::string number = std::to_string(++odd_);
    counterpart.fault(side(), "token", "status",
                      R"(,"status":200,"body":"{\"access_token\":\"ya29.a0/Odd+acc~ess=token=)" +
                          number + R"(\",\"refresh_token\":\"1//0g/Odd+ref~resh=token=)" + number +
                          R"(\",\"token_type\":\"Bearer\",\"expires_in\":3599}")");
    const Result result = watch(tokenCommand({"--force-refresh"}));
    ASSERT_EQ(result.status, 0) << result.error;
  }

 private:
  int odd_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsTokenTest, testing::Values("Google", "Microsoft"));

// The same at each provider.
class SecretsOfAnyTokenTest : public SecretsTokenTest {};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsOfAnyTokenTest, testing::Values("Google"));

TEST_P(SecretsTokenTest, InEachFormat) {
  signInWatched();
  bothWays([this] {
    for (const std::vector<std::string>& further :
         {std::vector<std::string>{"--format", "raw"},
          {"--format", "xoauth2"},
          {"--format", "oauthbearer", "--host", "imap.example.com", "--port", "993"},
          {"--format", "json"},
          {"--force-refresh"},
          {"--min-valid", "86400"}}) {
      const Result result = watch(tokenCommand(further));
      EXPECT_EQ(result.status, 0) << result.error;
      EXPECT_NE(result.output, "");
    }
  });
}

TEST_P(SecretsOfAnyTokenTest, WhoseOutputNobodyTakes) {
  signInWatched();
  bothWays([this] {
    for (const char* const redirection : {">&-", ">/dev/full", ">&- 2>&-"}) {
      const Result result = watch(tokenCommand(), {.redirections = redirection});
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.output, "");
    }
  });
}

TEST_P(SecretsTokenTest, WhatIsToldWithoutIt) {
  signInWatched();
  bothWays([this] {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"status", provider(), kUser},
          {"status", provider(), kUser, "--json"},
          {"accounts"},
          {"accounts", "--json"},
          {"config", "--show"},
          {"config"},
          {"version"},
          {"doctor"},
          {"doctor", "--json"},
          {"register"},
          {"doctor"},
          {"unregister"},
          {"unregister", "--all"}}) {
      const Result result = watch(arguments);
      EXPECT_EQ(result.status, 0) << arguments.front() << result.output << result.error;
    }
  });
}

TEST_P(SecretsTokenTest, WhoseRefreshIsRefusedWithAnEcho) {
  signInWatched();
  refreshToOddTokens();
  bothWays([this] {
    for (const auto& [kind, members] : echoing({"refresh_token", "client_secret"})) {
      SCOPED_TRACE(kind + members);
      counterpart.fault(side(), "token", kind, members);
      expectFailure(watch(tokenCommand({"--force-refresh"})));
    }
  });
}

TEST_P(SecretsTokenTest, WhoseRefreshIsAnsweredByNonsense) {
  signInWatched();
  const std::pair<std::string, std::string> faults[] = {{"html", ""},
                                                        {"close-half", ""},
                                                        {"truncated", ""},
                                                        {"huge", ""},
                                                        {"partial", R"(,"bytes":40)"},
                                                        {"redirect", ""}};
  bothWays([this, &faults] {
    for (const auto& [kind, members] : faults) {
      SCOPED_TRACE(kind);
      counterpart.fault(side(), "token", kind, members);
      expectFailure(watch(tokenCommand({"--force-refresh"})));
    }
  });
}

TEST_P(SecretsTokenTest, OfAnotherAccount) {
  signInWatched();
  bothWays([this] {
    counterpart.fault(side(), "token", "account");
    const Result result = watch(tokenCommand({"--force-refresh"}));
    EXPECT_TRUE(result.status == 0 || result.output.empty()) << result.status;
  });
}

TEST_P(SecretsOfAnyTokenTest, WhoseRefreshIsInterruptedOrTooSlow) {
  signInWatched();
  bothWays([this] {
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
      counterpart.hold(side(), Counterpart::Moment::kBeforeTheAnswer);
      Watched watched = begin(tokenCommand({"--force-refresh"}));
      counterpart.waitUntilHeld(side());
      watched.process->signal(signal);
      counterpart.release(side());  // which may still be waited for, so that no token is lost
      EXPECT_NE(end(watched).status, -1);
    }
    counterpart.fault(side(), "token", "hang");
    expectFailure(watch(tokenCommand({"--force-refresh", "--timeout", "1"})));
  });
}

TEST_P(SecretsOfAnyTokenTest, ThatARefusedCertificateKeepsBack) {
  signInWatched();
  bothWays([this] {
    for (const char* const name : {"expired", "otherhost", "selfsigned"}) {
      counterpart.useCertificate(side(), name);
      expectFailure(watch(tokenCommand({"--force-refresh"})));
      EXPECT_NE(watch({"doctor"}).status, 0);
    }
    counterpart.useCertificate(side(), "server");
  });
}

TEST_P(SecretsOfAnyTokenTest, OnACommandLineThatIsWrong) {
  signInWatched();
  const std::string access = watch(tokenCommand()).output;
  const std::string stray = access.substr(0, access.find('\n'));
  Watched waiting = beginSignIn();
  const std::string redirect = redirectOf(waiting);
  bothWays([&] {
    for (const std::string& secret : {stray, redirect}) {
      for (const std::vector<std::string>& arguments :
           {std::vector<std::string>{secret},
            {"token", provider(), kUser, secret},
            {"token", provider(), kUser, "--format", secret},
            {"token", provider(), kUser, "--min-valid", secret},
            {"token", secret, kUser},
            {"sign-in", provider(), kUser, secret},
            {"sign-in", provider(), kUser, "--timeout", secret},
            {"sign-out", provider(), kUser, secret},
            {"accounts", secret},
            {"keychain", "move", secret},
            {"keychain", secret},
            {"open-url", redirect, secret},
            {"doctor", "--passphrase-fd", secret}})
        expectFailure(watch(arguments, {.typed = {secret}}), 2);
      const std::string option = "--redirect=" + secret;
      expectFailure(watch({"token", provider(), kUser, option}, {.typed = {option}}), 2);
    }
  });
  waiting.process->signal(SIGINT);
  expectFailure(end(waiting), 1);
}

}  // namespace
}  // namespace e2e
