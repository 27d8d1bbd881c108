// The program as scripts meet it: arguments, streams and exit statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "host/CommandLine.h"
#include "host/Record.h"
#include "host/Setup.h"
#include "src/platform/World.h"
#include "tests/support/ChildProcess.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class CommandLineTest : public testing::Test {
 protected:
  struct Result {
    int status;
    std::string output;
    std::string error;
  };

  Result runProgram(std::vector<std::string> arguments,
                    const std::map<std::string, std::string>& more = {}) const {
    support::ChildProcess::Options options;
    options.arguments = std::move(arguments);
    options.environment = more;
    options.environment.insert({{"HOME", folder.path()},
                                {"XDG_CONFIG_HOME", ""},
                                {"XDG_DATA_HOME", ""},
                                {"XDG_RUNTIME_DIR", folder.path()},
                                {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.file("bus")}});
    support::ChildProcess child(options);
    child.closeInput();
    const int status = child.wait();
    return {status, child.output(), child.error()};
  }

  Result run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), QVR_OAUTH2_PROGRAM);
    return runProgram(std::move(arguments));
  }

  // The program by way of the shell, which sets its streams up.
  Result runShell(const std::string& arguments, const std::string& redirection) const {
    return runProgram(
        {"/bin/sh", "-c", std::string(QVR_OAUTH2_PROGRAM) + " " + arguments + " " + redirection});
  }

  // Writes a configuration and stores a token that is fresh for an hour.
  std::string storeToken(const std::string& accessToken) const {
    const std::string path = folder.write(
        "config.toml",
        "bundle_identifier = \"org.example.mail\"\n"
        "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\nkey_file = \"key\"\n");
    const qvr::ScopedWorld world;
    EXPECT_FALSE(host::installHost(std::get<host::Configuration>(host::readConfiguration(path))));
    const auto record = QVROAuth2Token::initWithAccessToken(
        accessToken, "Bearer", 3600, "stored-refresh", qvr::TextSet{"mail"}, host::now());
    EXPECT_FALSE(host::storeRecord({"Google", "user@example.org"}, record));
    return path;
  }

  const support::TemporaryFolder folder;
};

TEST_F(CommandLineTest, AnswersUsageMistakesWithStatus2AndOneSentence) {
  struct Case {
    std::vector<std::string> arguments;
    const char* sentence;
  };
  const Case cases[] = {
      {{}, "Choose a command"},
      {{"nonsense"}, "Choose a command"},
      {{"--bogus"}, "not an option here: --bogus"},
      {{"token"}, "PROVIDER is required"},
      {{"token", "google"}, "USER is required"},
      {{"token", "yahoo", "me"}, "must be Google or Microsoft"},
      {{"token", "", "me"}, "must be Google or Microsoft"},
      {{"token", "google", ""}, "user must not be empty"},
      {{"token", "google", "two\nlines"}, "without control characters"},
      {{"token", "google", "\xff"}, "without control characters"},
      {{"token", "google", "me", "extra"}, "an argument too many"},
      {{"token", "google", "me", "--bogus=1"}, "not an option here: --bogus."},
      {{"token", "google", "me", "--local"}, "not an option here: --local"},
      {{"sign-out", "google", "me", "--force-refresh"}, "not an option here: --force-refresh"},
      {{"sign-in", "google", "me", "--timeout", "soon"}, "wrong kind"},
      {{"sign-in", "google", "me", "--timeout", "0"}, "timeout must be"},
      {{"sign-in", "google", "me", "--timeout", "-1"}, "timeout must be"},
      {{"sign-in", "google", "me", "--timeout", "nan"}, "timeout must be"},
      {{"sign-in", "google", "me", "--timeout", "1e9"}, "timeout must be"},
      {{"sign-in", "google", "me", "--scope", "a\tb"}, "without control characters"},
      {{"sign-in", "google", "me", "--scope"}, "--scope"},
      {{"token", "google", "me", "--format", "sasl"}, "format must be raw, xoauth2"},
      {{"token", "google", "me", "--format", ""}, "format must be raw, xoauth2"},
      {{"token", "google", "me", "--format"}, "--format"},
      {{"token", "google", "me", "--host", "h"}, "go with --format oauthbearer"},
      {{"token", "google", "me", "--port", "1", "--format", "xoauth2"}, "--format oauthbearer"},
      {{"token", "google", "me", "--format=oauthbearer", "--host", ""}, "host must be a name"},
      {{"token", "google", "me", "--format=oauthbearer", "--host", "a b"}, "host must be a name"},
      {{"token", "google", "me", "--format=oauthbearer", "--host", "a\x01"}, "host must be a name"},
      {{"token", "google", "me", "--format=oauthbearer", "--port", "0"}, "port must be from 1"},
      {{"token", "google", "me", "--format=oauthbearer", "--port", "65536"}, "port must be from 1"},
      {{"token", "google", "me", "--format=oauthbearer", "--port", "imaps"}, "wrong kind"},
      {{"token", "google", "me", "--min-valid", "nan"}, "--min-valid must be from 0"},
      {{"token", "google", "me", "--min-valid", "-1"}, "--min-valid must be from 0"},
      {{"token", "google", "me", "--min-valid", "86401"}, "--min-valid must be from 0"},
      {{"token", "google", "me", "--min-valid", "soon"}, "wrong kind"},
      {{"token", "google", "me", "--timeout", "0"}, "timeout must be"},
      {{"--timeout", "nan", "accounts"}, "timeout must be"},
      {{"--timeout", "86401", "accounts"}, "timeout must be"},
      {{"status"}, "PROVIDER is required"},
      {{"status", "google"}, "USER is required"},
      {{"status", "yahoo", "me"}, "must be Google or Microsoft"},
      {{"status", "google", ""}, "user must not be empty"},
      {{"status", "google", "me", "--format", "json"}, "not an option here: --format"},
      {{"open-url"}, "URL is required"},
      {{"keychain"}, "subcommand is required"},
      {{"keychain", "move"}, "KEYCHAIN is required"},
      {{"keychain", "move", "elsewhere"}, "must be secret-service or file"},
      {{"--passphrase-fd", "three", "accounts"}, "wrong kind"},
      {{"--passphrase-fd", "-1", "accounts"}, "is not open for reading"},
      {{"--passphrase-fd", "99", "accounts"}, "descriptor 99, which --passphrase-fd names, is not"},
      {{"--passphrase-fd", "1", "accounts"}, "is not open for reading"},
      {{"version", "please"}, "an argument too many"},
  };
  for (const Case& each : cases) {
    const Result result = run(each.arguments);
    SCOPED_TRACE(each.sentence);
    EXPECT_EQ(result.status, host::kUsage);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, AllOf(StartsWith("qvr-oauth2: "), HasSubstr(each.sentence)));
    EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 1);
  }
}

TEST_F(CommandLineTest, UnderstandsTheShortestTokenCommandAsWithOptions) {
  const std::vector<std::string> accounts[] = {
      {"google", "me"}, {"yahoo", "me"},   {"google", "two\nlines"}, {"google", ""},
      {"", "me"},       {"google", "-v"},  {"google", "--bogus"},    {"--bogus", "me"},
      {"google", "++"}, {"google", "[a]"}, {"google", "token"},      {"google", "--"}};
  for (const std::vector<std::string>& account : accounts) {
    const Result shortest = run({"token", account[0], account[1]});
    const Result other = run({"token", "--format", "raw", account[0], account[1]});
    SCOPED_TRACE(account[0] + " " + account[1]);
    EXPECT_EQ(shortest.status, other.status);
    EXPECT_EQ(shortest.output, other.output);
    EXPECT_EQ(shortest.error, other.error);
    EXPECT_THAT(shortest.error, Not(IsEmpty()));
  }
}

TEST_F(CommandLineTest, RepeatsNoArgumentThatMayBeASecret) {
  const std::string url = "com.example:/oauth2/auth?code=secret-code&state=x";
  const Result result = run({"open-url", url, url});
  EXPECT_EQ(result.status, host::kUsage);
  EXPECT_THAT(result.error, Not(HasSubstr("secret-code")));
}

TEST_F(CommandLineTest, HelpsAndTellsItsVersionWithoutAConfiguration) {
  for (const char* const argument : {"--version", "version"}) {
    const Result result = run({argument});
    EXPECT_EQ(result.status, host::kDone);
    EXPECT_EQ(result.output, "qvr-oauth2 " QVROAUTH2CLIENT_VERSION "\n");
    EXPECT_EQ(result.error, "");
  }
  const Result help = run({"--help"});
  EXPECT_EQ(help.status, host::kDone);
  for (const char* const command :
       {"sign-in", "open-url", "token", "status", "accounts", "sign-out", "config", "version"}) {
    EXPECT_THAT(help.output, HasSubstr(command));
    const Result own = run({command, "--help"});
    EXPECT_EQ(own.status, host::kDone);
    EXPECT_THAT(own.output, HasSubstr("Usage: qvr-oauth2 " + std::string(command)));
  }
}

TEST_F(CommandLineTest, SaysWhatToDoWithoutAConfiguration) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"token", "Google", "me"},
        {"accounts"},
        {"sign-out", "Google", "me"},
        {"sign-in", "Google", "me"},
        {"config", "--show"}}) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, host::kFailed);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, "qvr-oauth2: There is no configuration at " +
                                folder.file(".config/qvr-oauth2/config.toml") +
                                ": run `qvr-oauth2 config` to write one.\n");
  }
}

TEST_F(CommandLineTest, TakesAProviderInAnyCaseAndPassesItOnExactly) {
  const std::string path = storeToken("stored-access");
  for (const char* const provider : {"Google", "google", "GOOGLE", "gOOgle"}) {
    const Result result = run({"--config", path, "token", provider, "user@example.org"});
    EXPECT_EQ(result.status, host::kDone) << result.error;
    EXPECT_EQ(result.output, "stored-access\n");
    EXPECT_EQ(result.error, "");
  }
  const Result other = run({"token", "MICROSOFT", "user@example.org", "--config", path});
  EXPECT_EQ(other.status, host::kNothingStored);
  EXPECT_THAT(other.error,
              HasSubstr("`qvr-oauth2 --config " + path + " sign-in Microsoft user@example.org`"));
}

TEST_F(CommandLineTest, PassesAUserWithACommaAndAnEqualsSignOnExactly) {
  const std::string path = storeToken("stored-access");
  for (const char* const command : {"token", "status"}) {
    const Result result = run({"--config", path, command, "google", "a,b=c@example.org"});
    EXPECT_EQ(result.status, host::kNothingStored);
    EXPECT_THAT(result.error,
                HasSubstr("`qvr-oauth2 --config " + path + " sign-in Google a,b=c@example.org`"));
  }
}

TEST_F(CommandLineTest, PrintsNothingButTheFormatOnStandardOutput) {
  const std::string path = storeToken("stored-access");
  for (const char* const format : {"raw", "xoauth2", "oauthbearer", "json"}) {
    const Result result =
        run({"--config", path, "token", "google", "user@example.org", "--format", format});
    EXPECT_EQ(result.status, host::kDone) << result.error;
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output.find('\n') + 1, result.output.size()) << "one line";
  }
}

TEST_F(CommandLineTest, ServesAStoredTokenFromAnotherProcessAndListsAndRemovesIt) {
  const std::string path = storeToken("stored-access");
  EXPECT_EQ(run({"--config", path, "accounts"}).output, "Google\tuser@example.org\n");
  const Result out = run({"--config", path, "sign-out", "google", "user@example.org", "--local"});
  EXPECT_EQ(out.status, host::kDone) << out.error;
  EXPECT_EQ(run({"--config", path, "accounts"}).output, "");
  EXPECT_EQ(run({"--config", path, "token", "google", "user@example.org"}).status,
            host::kNothingStored);
}

TEST_F(CommandLineTest, LoadsNoLibraryThatAStoredTokenDoesNotNeed) {
  const std::string path = storeToken("stored-access");
  const Result result =
      runProgram({QVR_OAUTH2_PROGRAM, "--config", path, "token", "google", "user@example.org"},
                 {{"LD_DEBUG", "files"}});
  EXPECT_EQ(result.output, "stored-access\n");
  EXPECT_THAT(result.error, AllOf(HasSubstr("libsodium"), Not(HasSubstr("libcurl"))));
  EXPECT_THAT(result.error, Not(HasSubstr("libsystemd")));
  if (QVR_STATIC_CXX_RUNTIME) {
    EXPECT_THAT(result.error, Not(HasSubstr("libstdc++")));
  }
}

TEST_F(CommandLineTest, SaysItsWarningsAndGoesOn) {
  const std::string path = storeToken("stored-access");
  folder.write(
      "config.toml",
      "bundle_identifier = \"org.example.mail\"\ntypo = 1\n"
      "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\nkey_file = \"key\"\n");
  const Result result = run({"--config", path, "token", "google", "user@example.org"});
  EXPECT_EQ(result.status, host::kDone);
  EXPECT_EQ(result.output, "stored-access\n");
  EXPECT_THAT(result.error, HasSubstr("warning: " + path + ":2: \"typo\""));
}

TEST_F(CommandLineTest, FailsWithoutDyingWhenItsOutputCannotBeWritten) {
  const std::string path = storeToken("stored-access");
  const std::string token = "--config " + path + " token google user@example.org";
  for (const char* const command : {"version", "--help", "config", token.c_str()}) {
    for (const char* const stream : {">/dev/full", ">&-"}) {
      const Result result = runShell(command, stream);
      EXPECT_EQ(result.status, host::kFailed) << command << stream;
      EXPECT_THAT(result.error, HasSubstr("Standard output cannot be written"));
    }
  }
  const Result piped = runShell(token, "| :; echo over");
  EXPECT_EQ(piped.output, "over\n");
}

TEST_F(CommandLineTest, WritesNoTokenIntoAFileThatTakesAClosedStreamsNumber) {
  const std::string path = storeToken("stored-access");
  const Result result =
      runShell("--config " + path + " token google user@example.org", "<&- >&- 2>&-");
  EXPECT_EQ(result.status, host::kFailed);
  EXPECT_EQ(run({"--config", path, "token", "google", "user@example.org"}).output,
            "stored-access\n");
}

TEST_F(CommandLineTest, SaysWhenTheKeychainsFolderCannotBeMade) {
  const std::string path = folder.write("config.toml",
                                        "bundle_identifier = \"org.example.mail\"\n"
                                        "[keychain]\nkind = \"encrypted-file\"\n"
                                        "directory = \"file/items\"\n"
                                        "key_file = \"file/key\"\n");
  folder.write("file", "not a folder");
  const Result result = run({"--config", path, "token", "google", "user@example.org"});
  EXPECT_NE(result.status, host::kDone);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, StartsWith("qvr-oauth2: "));
}

TEST_F(CommandLineTest, NeedsTheCertificatesThatTheConfigurationNames) {
  const std::string path = folder.write("config.toml",
                                        "bundle_identifier = \"org.example.mail\"\n"
                                        "[endpoints]\ncertificate_authority_file = \"none.pem\"\n");
  const Result result = run({"--config", path, "accounts"});
  EXPECT_EQ(result.status, host::kFailed);
  EXPECT_THAT(result.error, HasSubstr("certificate_authority_file " + folder.file("none.pem")));
}

TEST_F(CommandLineTest, TakesThePassphraseFromACommand) {
  const auto configurationWith = [this](const std::string& command) {
    return folder.write("config.toml",
                        "bundle_identifier = \"org.example.mail\"\n"
                        "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\nprotection "
                        "= \"passphrase\"\n"
                        "passphrase_command = \"" +
                            command + "\"\n");
  };
  const Result empty = run({"--config", configurationWith("echo correct horse"), "accounts"});
  EXPECT_EQ(empty.status, host::kDone) << empty.error;
  for (const char* const command : {"exit 1", "true", "echo; echo late", "/none/such"}) {
    const Result failed = run({"--config", configurationWith(command), "accounts"});
    EXPECT_EQ(failed.status, host::kFailed) << command;
    EXPECT_THAT(failed.error, HasSubstr("passphrase_command printed no passphrase"));
  }
}

class PassphraseDescriptorTest : public CommandLineTest {
 protected:
  PassphraseDescriptorTest() {
    path = folder.write("config.toml",
                        "bundle_identifier = \"org.example.mail\"\n"
                        "[keychain]\nkind = \"encrypted-file\"\ndirectory = \"items\"\n"
                        "protection = \"passphrase\"\npassphrase_command = \"exit 1\"\n");
  }

  Result runWith(const std::string& redirection, const std::string& descriptor = "3") const {
    return runShell("--config " + path + " --passphrase-fd " + descriptor + " accounts",
                    redirection);
  }

  void storeTokenWithPassphrase(const std::string& passphrase) const {
    const auto items = qvr::makeEncryptedFileKeychain({folder.file("items"), "", passphrase});
    const qvr::ScopedWorld world;
    ASSERT_FALSE(host::installHost(std::get<host::Configuration>(host::readConfiguration(path)),
                                   {nullptr, items, nullptr, nullptr}));
    const auto record = QVROAuth2Token::initWithAccessToken(
        "stored-access", "Bearer", 3600, "stored-refresh", qvr::TextSet{"mail"}, host::now());
    ASSERT_FALSE(host::storeRecord({"Google", "user@example.org"}, record));
  }

  std::string path;
};

TEST_F(PassphraseDescriptorTest, GoesBeforeThePassphraseCommand) {
  const std::string file = folder.write("passphrase", "correct horse\nsecond line\n");
  EXPECT_EQ(runWith("3<" + file).status, host::kDone);
  EXPECT_EQ(runWith("<" + file, "0").status, host::kDone);
}

TEST_F(PassphraseDescriptorTest, OpensTheKeychainOfThatPassphraseOnly) {
  storeTokenWithPassphrase("correct horse");
  const auto tokenWith = [this](const std::string& passphrase) {
    return runShell("--config " + path + " --passphrase-fd 3 token Google user@example.org",
                    "3<" + folder.write("passphrase", passphrase));
  };
  EXPECT_EQ(tokenWith("correct horse\n").output, "stored-access\n");
  const Result wrong = tokenWith("battery staple\n");
  EXPECT_EQ(wrong.status, host::kFailed);
  EXPECT_THAT(wrong.error, AllOf(HasSubstr("passphrase is not the right one"),
                                 Not(HasSubstr("battery staple"))));
}

TEST_F(PassphraseDescriptorTest, MustHaveALine) {
  const std::string empty = folder.write("empty", "");
  const std::string line = folder.write("line", "\nlater\n");
  for (const std::string& redirection : {"3<" + empty, "3<" + line}) {
    const Result result = runWith(redirection);
    EXPECT_EQ(result.status, host::kFailed) << redirection;
    EXPECT_THAT(result.error, HasSubstr("must not be empty"));
  }
}

TEST_F(PassphraseDescriptorTest, MustBeReadable) {
  const Result folderResult = runWith("3</");
  EXPECT_EQ(folderResult.status, host::kFailed);
  EXPECT_THAT(folderResult.error, HasSubstr("cannot be read"));
  for (const char* const redirection : {"3<&-", "3>/dev/null"}) {
    const Result result = runWith(redirection);
    EXPECT_EQ(result.status, host::kUsage) << redirection;
    EXPECT_THAT(result.error, HasSubstr("is not open for reading"));
  }
}

}  // namespace
}  // namespace host_test
