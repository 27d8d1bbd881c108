// The command's own time, and that every wait keeps to it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "host/Deadline.h"
#include "host/ExitStatus.h"
#include "host/HelperProgram.h"
#include "host/Passphrase.h"
#include "host/SignalledOutcome.h"
#include "host/Wait.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/host/SignInFixture.h"
#include "tests/host/TerminalProcess.h"

namespace host_test {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr double kLong = 30;

TEST(Deadline, IsThatOfEachWaitWhenThereIsNoOther) {
  EXPECT_EQ(host::secondsLeft(kLong), kLong);
  EXPECT_EQ(host::timeLeft(milliseconds(1234)), milliseconds(1234));
}

TEST(Deadline, OfTheCommandBoundsLongerWaitsOnly) {
  const ScopedDeadline deadline(20);
  EXPECT_GT(host::secondsLeft(kLong), 10);
  EXPECT_LE(host::secondsLeft(kLong), 20);
  EXPECT_EQ(host::secondsLeft(5), 5);
  EXPECT_EQ(host::timeLeft(milliseconds(5)), milliseconds(5));
  EXPECT_LE(host::timeLeft(std::chrono::hours(24)), milliseconds(20'000));
}

TEST(Deadline, LeavesNothingOnceItIsOver) {
  const ScopedDeadline deadline(-1);
  EXPECT_EQ(host::secondsLeft(kLong), 0);
  EXPECT_EQ(host::timeLeft(milliseconds(1000)), milliseconds(0));
  const auto end = host::deadlineAfter(milliseconds(1000));
  EXPECT_LE(end, std::chrono::steady_clock::now());
}

TEST(Deadline, CanBePutOffAndIsNeverBroughtForward) {
  const ScopedDeadline deadline(-1);
  EXPECT_FALSE(host::isTimeLeft());
  host::allowAtLeast(20);
  EXPECT_TRUE(host::isTimeLeft());
  host::allowAtLeast(1);
  EXPECT_GT(host::secondsLeft(kLong), 10);
  host::clearDeadline();
  host::allowAtLeast(1);
  EXPECT_EQ(host::secondsLeft(kLong), kLong);
}

TEST(Deadline, EndsAWaitForADescriptorThatIsNotReady) {
  const host::Pipe pipe;
  const ScopedDeadline deadline(0.02);
  EXPECT_FALSE(host::isReadyBefore(host::deadlineAfter(milliseconds(30'000)), pipe.readEnd.number(),
                                   POLLIN));
  EXPECT_TRUE(deadline.endedSoon());
}

TEST(Deadline, LetsWhatIsReadyBeTakenHoweverLateItIs) {
  const host::Pipe pipe;
  pipe.write("x");
  const ScopedDeadline deadline(-1);
  EXPECT_TRUE(host::isReadyBefore(host::deadlineAfter(milliseconds(30'000)), pipe.readEnd.number(),
                                  POLLIN));
}

TEST(Deadline, EndsAWaitForAHandler) {
  const ScopedDeadline deadline(0.02);
  EXPECT_EQ(host::Outcome<int>().wait(kLong), std::nullopt);
  EXPECT_EQ(host::SignalledOutcome<int>().wait(-1, kLong), host::Event::kDeadline);
  EXPECT_TRUE(deadline.endedSoon());
}

TEST(Deadline, EndsAHelperProgram) {
  const ScopedDeadline deadline(0.02);
  EXPECT_FALSE(host::runHelperProgram({"sleep", "3600"}, kLong));
  EXPECT_TRUE(deadline.endedSoon());
}

TEST(Deadline, EndsAPassphraseCommandThatKeepsItsOutputOpenAndOneThatOnlyStays) {
  for (const char* const command :
       {"exec sleep 3600", "echo passphrase; exec sleep 3600 >/dev/null"}) {
    const ScopedDeadline deadline(0.05);
    const auto answer = host::obtainPassphrase(command, false);
    ASSERT_TRUE(std::holds_alternative<host::Failure>(answer)) << command;
    EXPECT_EQ(std::get<host::Failure>(answer).status, host::kTryAgainLater) << command;
    EXPECT_THAT(std::get<host::Failure>(answer).sentence, HasSubstr("did not end in time"));
    EXPECT_TRUE(deadline.endedSoon()) << command;
  }
}

TEST(Deadline, EndsTheWaitForAPassphraseFromADescriptor) {
  const host::Pipe pipe;
  pipe.write("half of a pass");
  const ScopedDeadline deadline(0.02);
  const auto answer = host::readPassphrase(pipe.readEnd.number());
  ASSERT_TRUE(std::holds_alternative<host::Failure>(answer));
  EXPECT_EQ(std::get<host::Failure>(answer).status, host::kTryAgainLater);
  EXPECT_THAT(std::get<host::Failure>(answer).sentence,
              AllOf(HasSubstr("did not come in time"), Not(HasSubstr("half of"))));
  EXPECT_TRUE(deadline.endedSoon());
}

// The program, which gets its time from --timeout.
class TimeoutOfCommand : public testing::Test {
 protected:
  std::vector<std::string> command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {QVR_OAUTH2_PROGRAM, "--config", folder.file("config.toml"),
                                         "--timeout", "0.2"});
    return arguments;
  }

  void useSealedFiles() const {
    folder.write("config.toml",
                 "bundle_identifier = \"org.example.mail\"\n"
                 "[google]\nclient_identifier = \"example-client\"\n"
                 "custom_uri_scheme = \"com.example.mail\"\n"
                 "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\n" +
                     protection);
  }

  std::string protection = "protection = \"passphrase\"\n";
  const support::TemporaryFolder folder;
};

TEST_F(TimeoutOfCommand, EndsTheWaitForAPassphraseThatNobodyTypes) {
  useSealedFiles();
  TerminalProcess terminal(command({"accounts"}), {});
  ASSERT_TRUE(terminal.waitFor("New passphrase of the keychain: "));
  EXPECT_EQ(terminal.wait(), host::kTryAgainLater);
  EXPECT_TRUE(terminal.echoes());
  EXPECT_THAT(terminal.shown(), HasSubstr("Nobody typed anything in time: run the command"));
}

TEST_F(TimeoutOfCommand, EndsTheWaitForAnAnswerToConfig) {
  TerminalProcess terminal(command({"config"}), {});
  EXPECT_EQ(terminal.wait(), host::kTryAgainLater);
  EXPECT_THAT(terminal.shown(), HasSubstr("Nobody answered in time: nothing was written."));
  EXPECT_NE(access(folder.file("config.toml").c_str(), F_OK), 0);
}

TEST_F(TimeoutOfCommand, EndsTheWaitForARedirectOnStandardInput) {
  support::ChildProcess child({command({"open-url", "-"}), {{"XDG_RUNTIME_DIR", folder.path()}}});
  EXPECT_EQ(child.wait(), host::kFailed);
  EXPECT_THAT(child.error(), HasSubstr("That is not a URL"));
}

TEST_F(TimeoutOfCommand, EndsASignInWhateverItsOwnSays) {
  protection = "";
  useSealedFiles();
  support::ChildProcess child(
      {command({"sign-in", "google", "user@example.org", "--no-browser", "--timeout", "3600"}),
       {{"XDG_RUNTIME_DIR", folder.path()},
        {"HOME", folder.path()},
        {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/none"}}});
  EXPECT_EQ(child.wait(), host::kFailed);
  EXPECT_THAT(child.error(), HasSubstr("Nobody finished the sign-in within 0.2 s"));
}

}  // namespace
}  // namespace host_test
