// qvr-oauth2 token when the server, the network or standard output fails: the exit status tells
// failures apart, and what is stored survives them.
#include <chrono>

#include "tests/e2e/CommandTest.h"

namespace e2e {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class CommandFaultTest : public CommandTest {
 protected:
  // A due token's command, whose requests suffer a fault: it must fail with the status, print no
  // token, send so many refreshes and leave the record as it was.
  void expectFailure(int status, const std::string& kind, const std::string& members = "",
                     int refreshesSent = 1, const std::vector<std::string>& further = {}) {
    SCOPED_TRACE(kind + members);
    const Records before = records();
    const std::int64_t sent = refreshes();
    counterpart.fault(side(), "token", kind, members);
    failed_ = token(further);
    EXPECT_EQ(failed_.status, status) << failed_.error;
    EXPECT_EQ(failed_.output, "");
    EXPECT_EQ(records(), before);
    EXPECT_EQ(refreshes() - sent, refreshesSent);
  }

  // That the server takes the refresh token which is stored, and that a new one is served.
  void expectARefreshToWork() {
    const std::int64_t sent = refreshes();
    const Result result = token();
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_NE(result.output, "");
    EXPECT_EQ(refreshes() - sent, 1);
  }

  // The command by way of a shell, which does something to its standard output and knows the
  // command as "$@".
  Result runInShell(const std::string& script) {
    std::vector<std::string> arguments = {"sh", "-c", script, "sh", QVR_OAUTH2_PROGRAM};
    for (const std::string& argument : tokenCommand())
      arguments.push_back(argument);
    return resultOf(*startProgram(arguments));
  }

  void expectATokenThatCannotBePrintedToBeStored(const std::string& script) {
    SCOPED_TRACE(script);
    ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
    const std::int64_t sent = refreshes();
    const Result result = runInShell(script);
    EXPECT_EQ(result.status, 1) << result.error;
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, HasSubstr("Standard output cannot be written"));
    const Result next = token();
    EXPECT_EQ(next.status, 0) << next.error;
    EXPECT_EQ(refreshes() - sent, 1) << "what was refreshed is served";
  }

  Result failed_;
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandFaultTest, testing::Values("Google", "Microsoft"));

TEST_P(CommandFaultTest, AServerThatIsDownLeavesTheRecordAndExitsWith5) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Records before = records();
  counterpart.shutDown();
  const Result result = token();
  EXPECT_EQ(result.status, 5) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, HasSubstr("try again later."));
  EXPECT_EQ(records(), before);
}

// No resolver is asked for a name with a label that is too long (RFC 1035 section 2.3.4), so that
// this stays on the machine.
TEST_P(CommandFaultTest, AHostThatDNSDoesNotKnowLeavesTheRecordAndExitsWith5) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Records before = records();
  const std::string setting =
      provider() == "Google" ? "google_token_host = \"" : "microsoft_login_host = \"";
  changeConfiguration(setting + "localhost", setting + std::string(64, 'a') + ".invalid");
  const Result result = token();
  EXPECT_EQ(result.status, 5) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, HasSubstr("try again later."));
  EXPECT_EQ(records(), before);
  EXPECT_EQ(refreshes(), 0);
}

TEST_P(CommandFaultTest, AServerThatIsBusyIsToBeTriedAgainWhenItSays) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  for (const char* const status : {"503", "429"}) {
    const std::string members = std::string(R"(,"status":)") + status;
    expectFailure(5, "status", members + R"(,"headers":{"retry-after":"30"})");
    EXPECT_THAT(failed_.error, HasSubstr("try again in 30 seconds."));
    expectFailure(5, "status", members);
    EXPECT_THAT(failed_.error, HasSubstr("try again later."));
  }
  expectARefreshToWork();
}

TEST_P(CommandFaultTest, AServerThatFailsOrAnswersWithNoTokensLeavesTheRecordAndExitsWith5) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  for (const char* const kind : {"html", "empty", "truncated"}) {
    expectFailure(5, kind);
    EXPECT_THAT(failed_.error, HasSubstr("try again later."));
  }
  expectFailure(5, "status", R"(,"status":500)");
  expectFailure(5, "status", R"(,"status":502,"contentType":"text/html","body":"<html>no</html>")");
  expectFailure(5, "status", R"(,"status":200,"contentType":"text/html","body":"{\"error\":")");
  expectARefreshToWork();
}

TEST_P(CommandFaultTest, AnAnswerThatComesByteByByteIsWaitedForAsLongAsTheTimeoutSays) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const auto start = std::chrono::steady_clock::now();
  expectFailure(5, "trickle", "", 1, {"--timeout", "2"});
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed.count(), 2);
  EXPECT_LT(passed.count(), 10);
}

TEST_P(CommandFaultTest, AnAnswerThatComesByteByByteIsTakenOnceItIsThere) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  counterpart.fault(side(), "token", "trickle", R"(,"ms":1)");
  expectARefreshToWork();
}

TEST_P(CommandFaultTest, AServerThatNeverAnswersIsGivenUpAtTheTimeout) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  expectFailure(5, "hang", "", 1, {"--timeout", "1"});
  expectARefreshToWork();
}

// The server has rotated the refresh token by then; what it was before is worth nothing.
TEST_P(CommandFaultTest, AnAnswerSoonAfterTheTimeoutIsStillTakenSoThatNoTokenIsLost) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  counterpart.fault(side(), "token", "delay", R"(,"ms":1500,"after":true)");
  const Result late = token({"--timeout", "1"});
  EXPECT_EQ(late.status, 0) << late.error;
  EXPECT_EQ(token().output, late.output);
  EXPECT_EQ(token({"--force-refresh"}).status, 0) << "the refresh token is the new one";
}

TEST_P(CommandFaultTest, AnAnswerThatIsCutInTheMiddleIsNeverAskedForAgain) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  expectFailure(5, "close-half");
  const std::string body = R"(,"body":"{\"access_token\":\"cut\",\"token_type\":\"Bearer\"}")";
  for (const char* const bytes : {"0", "1", "20"}) {
    expectFailure(5, "partial", std::string(R"(,"bytes":)") + bytes + body + R"(,"times":1)");
  }
}

TEST_P(CommandFaultTest, AConnectionLostBeforeTheAnswerIsTriedOnceMore) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  for (const char* const kind : {"close", "reset"}) {
    SCOPED_TRACE(kind);
    const std::int64_t sent = refreshes();
    counterpart.fault(side(), "token", kind);
    const Result result = token({"--force-refresh"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_NE(result.output, "");
    EXPECT_EQ(refreshes() - sent, 2);
  }
}

TEST_P(CommandFaultTest, AConnectionLostTwiceLeavesTheRecordAndExitsWith5) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  for (const char* const kind : {"close", "reset"})
    expectFailure(5, kind, R"(,"times":2)", 2);
  expectARefreshToWork();
}

TEST_P(CommandFaultTest, AnotherAccountsTokenIsNotStored) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  expectFailure(1, "account", R"(,"sub":"mallory@example.com")");
  EXPECT_THAT(failed_.error, AllOf(HasSubstr("another account"), HasSubstr(kUser)));
}

TEST_P(CommandFaultTest, ARefusedGrantExitsWith4AndNamesTheReasonAndTheCommand) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const std::string signInAgain = "`qvr-oauth2 sign-in " + provider() + " " + kUser + "`";
  for (const char* const code : {"invalid_grant", "interaction_required", "consent_required"}) {
    expectFailure(4, "status",
                  std::string(R"(,"status":400,"body":"{\"error\":\")") + code +
                      R"(\",\"error_description\":\"An administrator said no.\"}")");
    EXPECT_THAT(failed_.error, AllOf(HasSubstr(code), HasSubstr("An administrator said no."),
                                     HasSubstr(signInAgain)));
  }
  expectARefreshToWork();
}

// A program that knows no lock, or that uses another runtime folder, may rotate the refresh token
// while this command's request is on its way.
TEST_P(CommandFaultTest, ATokenRotatedByAnotherProcessMeanwhileIsServedInPlaceOfTheRefusal) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  counterpart.hold(side(), Counterpart::Moment::kBeforeTheAnswer);
  const auto late = start(tokenCommand());
  counterpart.waitUntilHeld(side());
  const Result faster = token({}, {{"XDG_RUNTIME_DIR", folder.file("other-run")}});
  EXPECT_EQ(faster.status, 0) << faster.error;
  const Records before = records();
  counterpart.release(side());
  const Result result = resultOf(*late);
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_EQ(result.output, faster.output);
  EXPECT_EQ(records(), before);
  EXPECT_EQ(refreshes(), 2);
}

TEST_P(CommandFaultTest, AClosedStandardOutputLosesNoToken) {
  expectATokenThatCannotBePrintedToBeStored("exec \"$@\" >&-");
}

TEST_P(CommandFaultTest, AFullDiskBehindStandardOutputLosesNoToken) {
  expectATokenThatCannotBePrintedToBeStored("exec \"$@\" >/dev/full");
}

// Opened for both directions first, a named pipe can be opened for writing alone; then nobody
// reads. What SIGPIPE does is inherited: both of its dispositions count.
TEST_P(CommandFaultTest, APipeThatNobodyReadsLosesNoToken) {
  for (const char* const disposition : {"default", "ignore"}) {
    const std::string pipe = folder.file(std::string("pipe-") + disposition);
    expectATokenThatCannotBePrintedToBeStored("mkfifo '" + pipe + "' && exec 3<>'" + pipe + "' >'" +
                                              pipe + "' 3>&- && exec env --" + disposition +
                                              "-signal=PIPE \"$@\"");
  }
}

}  // namespace
}  // namespace e2e
