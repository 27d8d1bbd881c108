// Where the passphrase comes from.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/ExitStatus.h"
#include "host/Passphrase.h"
#include "tests/host/TerminalProcess.h"
#include "tests/support/ChildProcess.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string answer(const std::string& command) {
  auto result = host::obtainPassphrase(command, false);
  if (auto* failure = std::get_if<host::Failure>(&result)) return "failure: " + failure->sentence;
  return std::get<std::string>(result);
}

TEST(PassphraseCommand, GivesTheFirstLineItPrints) {
  EXPECT_EQ(answer("printf 'correct horse'"), "correct horse");
  EXPECT_EQ(answer("echo ' with spaces '; echo second"), " with spaces ");
  EXPECT_EQ(answer("printf '%s\\n' \"it's\" | cat"), "it's");
}

TEST(PassphraseCommand, FailsWithoutOutputOrWithAStatusOrASignal) {
  for (const char* const command :
       {"true", "echo", "echo secret; exit 3", "kill -9 $$", "none/x"}) {
    EXPECT_THAT(answer(command),
                AllOf(HasSubstr("printed no passphrase"), Not(HasSubstr("secret"))))
        << command;
  }
}

TEST(PassphraseCommand, IsCutOffWhenItPrintsTooMuch) {
  EXPECT_THAT(answer("yes"), HasSubstr("printed no passphrase"));
}

TEST(PassphraseCommand, HearsSignalsAndDiesOfAClosedPipe) {
  EXPECT_EQ(answer("trap 'echo heard' TERM; kill -TERM $$"), "heard");
}

class PassphraseOnTerminal : public testing::Test {
 protected:
  PassphraseOnTerminal() {
    folder.write("config.toml",
                 "bundle_identifier = \"org.example.mail\"\n"
                 "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\nprotection = "
                 "\"passphrase\"\n");
  }

  // From then on the keychain has a passphrase already.
  void useKeychain() const {
    ASSERT_EQ(mkdir(folder.file("items").c_str(), 0700), 0);
    folder.write("items/something", "");
  }

  std::vector<std::string> command() const {
    return {QVR_OAUTH2_PROGRAM, "--config", folder.file("config.toml"), "accounts"};
  }

  const support::TemporaryFolder folder;
};

TEST_F(PassphraseOnTerminal, IsTypedWithoutEcho) {
  useKeychain();
  TerminalProcess terminal(command(), {});
  ASSERT_TRUE(terminal.waitFor("Passphrase of the keychain: "));
  EXPECT_FALSE(terminal.echoes());
  terminal.type("correct horse\n");
  EXPECT_EQ(terminal.wait(), host::kDone);
  EXPECT_TRUE(terminal.echoes());
  EXPECT_THAT(terminal.shown(), Not(HasSubstr("correct horse")));
}

TEST_F(PassphraseOnTerminal, IsTypedTwiceWhenItIsNew) {
  TerminalProcess terminal(command(), {});
  ASSERT_TRUE(terminal.waitFor("New passphrase of the keychain: "));
  EXPECT_FALSE(terminal.echoes());
  terminal.type("correct horse\n");
  ASSERT_TRUE(terminal.waitFor("The same passphrase again: "));
  EXPECT_FALSE(terminal.echoes());
  terminal.type("correct horse\n");
  EXPECT_EQ(terminal.wait(), host::kDone);
  EXPECT_TRUE(terminal.echoes());
  EXPECT_THAT(terminal.shown(), Not(HasSubstr("correct horse")));
}

TEST_F(PassphraseOnTerminal, IsNotTakenWithATypingError) {
  TerminalProcess terminal(command(), {});
  ASSERT_TRUE(terminal.waitFor("New passphrase of the keychain: "));
  terminal.type("correct horse\n");
  ASSERT_TRUE(terminal.waitFor("The same passphrase again: "));
  terminal.type("correct hrose\n");
  EXPECT_EQ(terminal.wait(), host::kFailed);
  EXPECT_THAT(terminal.shown(),
              AllOf(HasSubstr("The two passphrases differ"), Not(HasSubstr("horse"))));
  EXPECT_NE(access(folder.file("items").c_str(), F_OK), 0);
}

TEST_F(PassphraseOnTerminal, IsNotEmpty) {
  useKeychain();
  TerminalProcess terminal(command(), {});
  ASSERT_TRUE(terminal.waitFor("Passphrase of the keychain: "));
  terminal.type("\n");
  EXPECT_EQ(terminal.wait(), host::kFailed);
  EXPECT_THAT(terminal.shown(), HasSubstr("cannot be empty"));
}

TEST_F(PassphraseOnTerminal, CanBeLeftWithTheInterruptKey) {
  useKeychain();
  TerminalProcess terminal(command(), {});
  ASSERT_TRUE(terminal.waitFor("Passphrase of the keychain: "));
  terminal.type("half\x03");
  EXPECT_EQ(terminal.wait(), 128 + SIGINT);
  EXPECT_TRUE(terminal.echoes());
}

TEST_F(PassphraseOnTerminal, IsMissedWithoutOne) {
  std::vector<std::string> arguments = command();
  arguments.insert(arguments.begin(), {"/usr/bin/setsid", "--wait"});
  support::ChildProcess child({arguments, {}});
  EXPECT_EQ(child.wait(), host::kFailed);
  EXPECT_THAT(child.error(), AllOf(HasSubstr("There is no terminal to ask on."),
                                   HasSubstr("set passphrase_command in the configuration")));
}

}  // namespace
}  // namespace host_test
