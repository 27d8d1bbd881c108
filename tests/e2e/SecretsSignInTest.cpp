// Signing in shows no secret: not the code, not its verifier, not what they are exchanged for.

#include <signal.h>

#include "tests/e2e/SecretsTest.h"

namespace e2e {
namespace {

class SecretsSignInTest : public SecretsTest {};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsSignInTest, testing::Values("Google", "Microsoft"));

TEST_P(SecretsSignInTest, ByTheBrowserAndItsHandler) {
  bothWays([this] { signInWatched(); });
  EXPECT_THAT(contentOf("open-url-said"), testing::Not(testing::IsEmpty()));
  bothWays([this] {
    const Result other = watch({"sign-in", provider(), "bob@example.com"}, browser());
    EXPECT_EQ(other.status, 0) << other.error;
  });
  bothWays([this] {
    expectFailure(watch({"sign-in", provider(), kUser}, browser(kUser, "--deny")));
  });
}

TEST_P(SecretsSignInTest, ByAPastedRedirect) {
  bothWays([this] {
    Watched waiting = beginSignIn();
    const std::string redirect = redirectOf(waiting);
    const std::string code = redirect.substr(redirect.find("code="));
    waiting.process->writeInput("no address\n" + code + "\nhttps://example.com/?" + code + "\n" +
                                redirect + "\n");
    EXPECT_EQ(end(waiting).status, 0) << waiting.process->error();
  });
}

TEST_P(SecretsSignInTest, ByOpenURL) {
  bothWays([this] {
    Watched waiting = beginSignIn();
    const std::string redirect = redirectOf(waiting);
    const std::string foreign = redirect + "&state=another";
    expectFailure(watch({"open-url", foreign}), 1);
    expectFailure(watch({"open-url", "-"}, {.input = foreign + "\n"}), 1);
    expectFailure(watch({"open-url", redirect.substr(redirect.find("code="))}), 1);
    EXPECT_EQ(watch({"open-url", "-"}, {.input = redirect + "\n"}).status, 0);
    EXPECT_EQ(end(waiting).status, 0) << waiting.process->error();
    expectFailure(watch({"open-url", redirect}), 1);
  });
}

TEST_P(SecretsSignInTest, ThatIsCancelledBeforeTheRedirectOrTakesTooLong) {
  bothWays([this] {
    for (const int signal : {SIGINT, SIGTERM}) {
      Watched waiting = beginSignIn();
      redirectOf(waiting);
      waiting.process->signal(signal);
      expectFailure(end(waiting));
    }
    expectFailure(watch({"sign-in", provider(), kUser, "--no-browser", "--timeout", "0.3"}), 1);
  });
}

TEST_P(SecretsSignInTest, ThatIsCancelledAfterTheRedirect) {
  bothWays([this] {
    for (const int signal : {SIGINT, SIGTERM}) {
      Watched waiting = beginSignIn();
      counterpart.fault(side(), "token", "hold", R"(,"after":true)");
      waiting.process->writeInput(redirectOf(waiting) + "\n");
      counterpart.waitUntilHeld(side());
      waiting.process->signal(signal);
      expectFailure(end(waiting));
      counterpart.release(side());
    }
  });
}

TEST_P(SecretsSignInTest, WhoseExchangeFails) {
  bothWays([this] {
    for (const auto& [kind, members] : echoing({"code", "code_verifier", "client_secret"})) {
      SCOPED_TRACE(kind + members);
      Watched waiting = beginSignIn();
      const std::string redirect = redirectOf(waiting);
      counterpart.fault(side(), "token", kind, members);
      waiting.process->writeInput(redirect + "\n");
      expectFailure(end(waiting));
    }
  });
}

}  // namespace
}  // namespace e2e
