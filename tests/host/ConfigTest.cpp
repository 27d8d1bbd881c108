// qvr-oauth2 config: the template for a pipe, the dialogue on a terminal, and what is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "host/Command.h"
#include "host/ConfigText.h"
#include "host/ConfigurationEdit.h"
#include "host/ConfigurationLock.h"
#include "host/FileWriting.h"
#include "tests/host/TerminalProcess.h"
#include "tests/support/ChildProcess.h"

namespace host_test {
namespace {

using host::Configuration;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kMicrosoftIdentifier = "01234567-89ab-cdef-0123-456789abcdef";

std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

Configuration parsed(const std::string& text) {
  auto result = host::parseConfiguration(text, "/c/config.toml");
  if (auto* failure = std::get_if<host::Failure>(&result)) {
    ADD_FAILURE() << failure->sentence;
    return {};
  }
  return std::get<Configuration>(result);
}

class ConfigTest : public testing::Test {
 protected:
  std::map<std::string, std::string> environment() const {
    return {{"HOME", folder.path()}, {"XDG_CONFIG_HOME", ""}, {"XDG_DATA_HOME", ""}};
  }
  std::string path() const { return folder.file(".config/qvr-oauth2/config.toml"); }

  // The command on a pipe.
  int run(std::vector<std::string> arguments, std::string* output, std::string* error) const {
    arguments.insert(arguments.begin(), QVR_OAUTH2_PROGRAM);
    support::ChildProcess child({arguments, environment()});
    child.closeInput();
    const int status = child.wait();
    *output = child.output();
    *error = child.error();
    return status;
  }

  TerminalProcess onTerminal() const {
    return TerminalProcess({QVR_OAUTH2_PROGRAM, "config"}, environment());
  }

  // Answers the questions of a first use; an empty answer is Enter.
  static void answer(TerminalProcess& terminal, const std::string& google,
                     const std::string& secret, const std::string& microsoft) {
    ASSERT_TRUE(terminal.waitFor("reverse domain form ["));
    terminal.type("org.example.mail\n");
    ASSERT_TRUE(terminal.waitFor("Google client ID"));
    terminal.type(google + "\n");
    if (!google.empty()) {
      ASSERT_TRUE(terminal.waitFor("URI scheme ["));
      terminal.type("\n");
      ASSERT_TRUE(terminal.waitFor("Client secret"));
      EXPECT_FALSE(terminal.echoes());
      terminal.type(secret + "\n");
    }
    ASSERT_TRUE(terminal.waitFor("Microsoft application (client) ID"));
    EXPECT_TRUE(terminal.echoes());
    terminal.type(microsoft + "\n");
    ASSERT_TRUE(terminal.waitFor("Keychain [automatic]: "));
    terminal.type("\n");
    ASSERT_TRUE(terminal.waitFor("Protection [key-file]: "));
    terminal.type("\n");
  }

  const support::TemporaryFolder folder;
};

TEST_F(ConfigTest, PrintsATemplateThatIsAValidConfigurationWhenNotOnATerminal) {
  std::string output;
  std::string error;
  EXPECT_EQ(run({"config"}, &output, &error), host::kDone);
  EXPECT_EQ(error, "");
  const Configuration configuration = parsed(output);
  EXPECT_THAT(configuration.warnings, IsEmpty());
  EXPECT_EQ(configuration.bundleIdentifier, host::kDefaultBundleIdentifier);
  EXPECT_EQ(configuration.keychain.protection, "key-file");
  EXPECT_THAT(output, AllOf(HasSubstr("https://console.cloud.google.com"),
                            HasSubstr("https://entra.microsoft.com"),
                            HasSubstr("msauth.org.qvroauth2.command://auth"), HasSubstr(path())));
  EXPECT_NE(access(path().c_str(), F_OK), 0) << "nothing is written";
}

TEST_F(ConfigTest, AsksForEachValueAndWritesAFileThatOnlyTheUserCanRead) {
  TerminalProcess terminal = onTerminal();
  answer(terminal, "123-abc.apps.googleusercontent.com", "typed-secret", kMicrosoftIdentifier);
  EXPECT_EQ(terminal.wait(), host::kDone);
  EXPECT_THAT(terminal.shown(), HasSubstr("msauth.org.example.mail://auth"));
  EXPECT_THAT(terminal.shown(), HasSubstr("com.googleusercontent.apps.123-abc:/oauth2/auth"));
  EXPECT_THAT(terminal.shown(), Not(HasSubstr("typed-secret")));
  const Configuration written = parsed(contentOf(path()));
  EXPECT_EQ(written.bundleIdentifier, "org.example.mail");
  EXPECT_EQ(written.google.clientIdentifier, "123-abc.apps.googleusercontent.com");
  EXPECT_EQ(written.google.customURIScheme, "com.googleusercontent.apps.123-abc");
  EXPECT_EQ(written.google.clientSecret, "typed-secret");
  EXPECT_EQ(written.microsoft.applicationIdentifier, kMicrosoftIdentifier);
  struct stat status = {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(ConfigTest, TakesEnterForNoProvider) {
  TerminalProcess terminal = onTerminal();
  answer(terminal, "", "", "");
  EXPECT_EQ(terminal.wait(), host::kDone);
  const Configuration written = parsed(contentOf(path()));
  EXPECT_EQ(written.google.clientIdentifier, "");
  EXPECT_EQ(written.microsoft.applicationIdentifier, "");
}

TEST_F(ConfigTest, AsksAgainAfterAnAnswerThatCannotWork) {
  TerminalProcess terminal = onTerminal();
  ASSERT_TRUE(terminal.waitFor("reverse domain form ["));
  terminal.type("two words\n");
  ASSERT_TRUE(terminal.waitFor("This must be a name such as"));
  answer(terminal, "", "", "");
  EXPECT_EQ(terminal.wait(), host::kDone);
}

TEST_F(ConfigTest, NeverReplacesAFileWithoutAYes) {
  ASSERT_FALSE(host::replaceFile(path(), "bundle_identifier = \"org.kept\"\n"));
  TerminalProcess terminal = onTerminal();
  ASSERT_TRUE(terminal.waitFor("Replace it? [no]: "));
  terminal.type("maybe\n");
  ASSERT_TRUE(terminal.waitFor("Replace it? [no]: "));
  terminal.type("\n");
  EXPECT_EQ(terminal.wait(), host::kFailed);
  EXPECT_THAT(terminal.shown(), HasSubstr("Nothing was written."));
  EXPECT_EQ(contentOf(path()), "bundle_identifier = \"org.kept\"\n");
}

TEST_F(ConfigTest, OffersWhatIsThereAndKeepsWhatIsNotAskedFor) {
  ASSERT_FALSE(
      host::replaceFile(path(),
                        "bundle_identifier = \"org.kept\"\n"
                        "[google]\nclient_identifier = \"abc\"\n"
                        "custom_uri_scheme = \"com.kept\"\nclient_secret = \"s\\\"\\\\t\"\n"
                        "[endpoints]\ngoogle_token_host = \"localhost:1\"\n"));
  TerminalProcess terminal = onTerminal();
  for (const char* const question :
       {"Replace it? [no]: ", "form [org.kept]: ", "Google client ID, empty for no Google [abc]: ",
        "URI scheme [com.kept]: ", "Client secret", "Microsoft application (client) ID",
        "Keychain [automatic]: ", "Protection [key-file]: "}) {
    ASSERT_TRUE(terminal.waitFor(question)) << question << terminal.shown();
    terminal.type(question == std::string("Replace it? [no]: ") ? "yes\n" : "\n");
  }
  EXPECT_EQ(terminal.wait(), host::kDone);
  const Configuration written = parsed(contentOf(path()));
  EXPECT_EQ(written.bundleIdentifier, "org.kept");
  EXPECT_EQ(written.google.customURIScheme, "com.kept");
  EXPECT_EQ(written.google.clientSecret, "s\"\\t");
  EXPECT_EQ(written.endpoints.googleTokenHost, "localhost:1");
}

TEST_F(ConfigTest, NeverChangesAKeychainThatWasChosen) {
  ASSERT_FALSE(host::replaceFile(path(),
                                 "bundle_identifier = \"org.kept\"\n"
                                 "[keychain]\nkind = \"secret-service\"\n"));
  TerminalProcess terminal = onTerminal();
  for (const char* const question :
       {"Replace it? [no]: ", "form [org.kept]: ", "Google client ID", "Microsoft application"}) {
    ASSERT_TRUE(terminal.waitFor(question)) << question << terminal.shown();
    terminal.type(question == std::string("Replace it? [no]: ") ? "yes\n" : "\n");
  }
  EXPECT_EQ(terminal.wait(), host::kDone);
  EXPECT_THAT(terminal.shown(), AllOf(HasSubstr("Tokens stay in the desktop's keyring"),
                                      Not(HasSubstr("Protection ["))));
  EXPECT_EQ(parsed(contentOf(path())).keychain.kind, host::kSecretService);
}

TEST_F(ConfigTest, WritesWhenNoOtherCommandWorksOnTheKeychain) {
  ASSERT_FALSE(host::replaceFile(path(),
                                 "bundle_identifier = \"org.kept\"\n"
                                 "[keychain]\nkind = \"encrypted-file\"\n"));
  auto moving = host::ConfigurationLock::acquire(path(), host::ConfigurationLock::Kind::kExclusive,
                                                 std::chrono::milliseconds(0));
  ASSERT_TRUE(std::holds_alternative<host::ConfigurationLock>(moving));
  TerminalProcess terminal = onTerminal();
  for (const char* const question : {"Replace it? [no]: ", "form [org.kept]: ", "Google client ID",
                                     "Microsoft application", "Protection [key-file]: "}) {
    ASSERT_TRUE(terminal.waitFor(question)) << question << terminal.shown();
    terminal.type(question == std::string("Replace it? [no]: ") ? "yes\n" : "\n");
  }
  ASSERT_TRUE(terminal.waitFor("Try again? [yes]: ")) << terminal.shown();
  ASSERT_FALSE(host::writeKeychainKind(path(), host::kSecretService));
  moving = host::ConfigurationLock();
  terminal.type("\n");
  EXPECT_EQ(terminal.wait(), host::kDone);
  EXPECT_EQ(parsed(contentOf(path())).keychain.kind, host::kSecretService);
}

TEST_F(ConfigTest, WritesNothingWhenAnotherCommandIsNotWaitedFor) {
  const std::string text = "bundle_identifier = \"org.kept\"\n";
  ASSERT_FALSE(host::replaceFile(path(), text));
  const auto working = host::ConfigurationLock::acquire(
      path(), host::ConfigurationLock::Kind::kShared, std::chrono::milliseconds(0));
  ASSERT_TRUE(std::holds_alternative<host::ConfigurationLock>(working));
  TerminalProcess terminal = onTerminal();
  ASSERT_TRUE(terminal.waitFor("Replace it? [no]: "));
  terminal.type("yes\n");
  answer(terminal, "", "", "");
  ASSERT_TRUE(terminal.waitFor("Try again? [yes]: ")) << terminal.shown();
  terminal.type("no\n");
  EXPECT_EQ(terminal.wait(), host::kTryAgainLater);
  EXPECT_EQ(contentOf(path()), text);
}

TEST_F(ConfigTest, KeepsTheFilesThatAreInUseThoughNoKindIsWritten) {
  ASSERT_FALSE(host::replaceFile(path(), "bundle_identifier = \"org.kept\"\n"));
  ASSERT_FALSE(host::replaceFile(folder.file(".local/share/qvr-oauth2/items/item"), ""));
  TerminalProcess terminal = onTerminal();
  for (const char* const question : {"Replace it? [no]: ", "form [org.kept]: ", "Google client ID",
                                     "Microsoft application", "Protection [key-file]: "}) {
    ASSERT_TRUE(terminal.waitFor(question)) << question << terminal.shown();
    terminal.type(question == std::string("Replace it? [no]: ") ? "yes\n" : "\n");
  }
  EXPECT_EQ(terminal.wait(), host::kDone);
  EXPECT_EQ(parsed(contentOf(path())).keychain.kind, host::kEncryptedFile);
}

TEST_F(ConfigTest, WritesNothingWhenTheUserLeaves) {
  TerminalProcess terminal = onTerminal();
  ASSERT_TRUE(terminal.waitFor("reverse domain form ["));
  terminal.type("\x04");  // the end of input
  EXPECT_EQ(terminal.wait(), host::kFailed);
  EXPECT_NE(access(path().c_str(), F_OK), 0);
}

TEST_F(ConfigTest, LeavesTheTerminalEchoingWhenInterruptedAtTheSecret) {
  TerminalProcess terminal = onTerminal();
  ASSERT_TRUE(terminal.waitFor("reverse domain form ["));
  terminal.type("\n");
  ASSERT_TRUE(terminal.waitFor("Google client ID"));
  terminal.type("abc\n");
  ASSERT_TRUE(terminal.waitFor("URI scheme ["));
  terminal.type("\n");
  ASSERT_TRUE(terminal.waitFor("Client secret"));
  EXPECT_FALSE(terminal.echoes());
  terminal.type("\x03");  // SIGINT
  EXPECT_EQ(terminal.wait(), 128 + SIGINT);
  EXPECT_TRUE(terminal.echoes());
  EXPECT_NE(access(path().c_str(), F_OK), 0);
}

TEST_F(ConfigTest, SaysWhenTheFileCannotBeWritten) {
  folder.write(".config", "a file where the folder should be");
  TerminalProcess terminal = onTerminal();
  answer(terminal, "", "", "");
  EXPECT_EQ(terminal.wait(), host::kFailed);
  EXPECT_THAT(terminal.shown(), HasSubstr("cannot be"));
}

TEST_F(ConfigTest, ShowsWhatIsInForceWithoutSecrets) {
  std::string output;
  std::string error;
  ASSERT_FALSE(host::replaceFile(path(),
                                 "bundle_identifier = \"org.example\"\n"
                                 "[google]\nclient_secret = \"a-secret-value\"\n"));
  EXPECT_EQ(run({"config", "--show"}, &output, &error), host::kDone);
  EXPECT_THAT(output, AllOf(HasSubstr("client_secret = \"{length = 14}\""),
                            HasSubstr("bundle_identifier = \"org.example\""),
                            HasSubstr("google_token_host = \"oauth2.googleapis.com\"")));
  EXPECT_THAT(output + error, Not(HasSubstr("a-secret-value")));
}

TEST(ConfigText, SuggestsGooglesSchemeForAnIdentifierOfGoogles) {
  EXPECT_EQ(host::suggestedURIScheme("1-a.apps.googleusercontent.com", "org.example"),
            "com.googleusercontent.apps.1-a");
  EXPECT_EQ(host::suggestedURIScheme("example-client", "org.example"), "org.example");
}

TEST(ConfigText, MakesCommentsOfWholeTexts) {
  EXPECT_EQ(host::asComment("one\n\ntwo"), "# one\n#\n# two\n");
  EXPECT_EQ(host::asComment(""), "");
}

TEST(FileWriting, ReplacesTheTargetOfALinkAndLeavesNothingBehind) {
  const support::TemporaryFolder folder;
  const std::string target = folder.write("target", "old");
  ASSERT_EQ(symlink(target.c_str(), folder.file("link").c_str()), 0);
  EXPECT_FALSE(host::replaceFile(folder.file("link"), "new"));
  EXPECT_EQ(contentOf(target), "new");
  struct stat status = {};
  ASSERT_EQ(lstat(folder.file("link").c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_EQ(unlink(target.c_str()), 0);
  EXPECT_EQ(unlink(folder.file("link").c_str()), 0);
  EXPECT_EQ(rmdir(folder.path().c_str()), 0) << "no temporary file is left";
  ASSERT_EQ(mkdir(folder.path().c_str(), 0700), 0);
}

TEST(FileWriting, FailsWithASentenceAndKeepsWhatWasThere) {
  const support::TemporaryFolder folder;
  ASSERT_EQ(mkdir(folder.file("taken").c_str(), 0700), 0);
  const auto failure = host::replaceFile(folder.file("taken"), "text");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, host::kFailed);
  EXPECT_THAT(failure->sentence, HasSubstr("cannot be written"));
  EXPECT_EQ(rmdir(folder.file("taken").c_str()), 0);
  EXPECT_EQ(rmdir(folder.path().c_str()), 0) << "no temporary file is left";
  ASSERT_EQ(mkdir(folder.path().c_str(), 0700), 0);
}

}  // namespace
}  // namespace host_test
