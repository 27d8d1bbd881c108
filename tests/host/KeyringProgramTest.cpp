// The program with a Secret Service on a bus of its own: which keychain it uses, what it says of
// it, and moving tokens from one to the other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/ConfigurationLock.h"
#include "host/Record.h"
#include "host/Setup.h"
#include "src/platform/World.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeSecretService.h"
#include "tests/support/PrivateBus.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const host::Account kAccount = {"Google", "user@example.org"};

class KeyringProgramTest : public testing::Test {
 protected:
  struct Result {
    int status;
    std::string output;
    std::string error;
  };

  KeyringProgramTest() { configure(""); }

  void configure(const std::string& kind) const {
    folder.write("config.toml",
                 "bundle_identifier = \"org.example.mail\" # kept\n"
                 "[keychain]\ndirectory = \"items\"\nkey_file = \"key\"\n" +
                     (kind.empty() ? "" : "kind = \"" + kind + "\"\n"));
  }

  host::Configuration configuration() const {
    return std::get<host::Configuration>(host::readConfiguration(folder.file("config.toml")));
  }

  std::unique_ptr<support::ChildProcess> start(std::vector<std::string> arguments,
                                               const std::string& busAddress) const {
    arguments.insert(arguments.begin(),
                     {QVR_OAUTH2_PROGRAM, "--config", folder.file("config.toml")});
    auto child = std::make_unique<support::ChildProcess>(
        support::ChildProcess::Options{arguments,
                                       {{"HOME", folder.path()},
                                        {"XDG_RUNTIME_DIR", folder.path()},
                                        {"DBUS_SESSION_BUS_ADDRESS", busAddress}}});
    child->closeInput();
    return child;
  }
  Result run(std::vector<std::string> arguments, const std::string& busAddress) const {
    const auto child = start(std::move(arguments), busAddress);
    const int status = child->wait();
    return {status, child->output(), child->error()};
  }
  Result run(std::vector<std::string> arguments) const {
    return run(std::move(arguments), bus.address());
  }
  Result runWithoutBus(std::vector<std::string> arguments) const {
    return run(std::move(arguments), "unix:path=" + folder.file("no-bus"));
  }
  Result token() const { return run({"token", "Google", kAccount.username}); }

  // Stores a token in a keychain, past the configuration.
  void store(std::string_view kind, const std::string& accessToken, double age = 0) const {
    qvr::SecretServiceOptions options;
    options.busAddress = bus.address();
    const auto items = kind == host::kSecretService
                           ? qvr::makeSecretServiceKeychain(options)
                           : qvr::makeEncryptedFileKeychain(
                                 {folder.file("items"), folder.file("key"), std::nullopt});
    const qvr::ScopedWorld world;
    ASSERT_FALSE(host::installHost(configuration(), {nullptr, items, nullptr, nullptr}));
    const qvr::Date made{host::now().timeIntervalSinceReferenceDate - age};
    const qvr::ErrorPtr error = host::storeRecord(
        kAccount, QVROAuth2Token::initWithAccessToken(accessToken, "Bearer", 3600, "the-refresh",
                                                      qvr::TextSet{"mail"}, made));
    ASSERT_FALSE(error) << error->description();
  }

  std::size_t keyringItems() {
    return service.with([](const support::FakeKeyring& keyring) { return keyring.items.size(); });
  }

  const support::TemporaryFolder folder;
  const support::PrivateBus bus;
  support::FakeSecretService service{bus.address()};
};

TEST_F(KeyringProgramTest, FirstUsePicksTheSecretServiceWhenOneAnswers) {
  const Result first = token();
  EXPECT_EQ(first.status, host::kNothingStored);
  EXPECT_THAT(first.error, AllOf(HasSubstr("kept in the desktop's keyring, as "),
                                 HasSubstr(folder.file("config.toml"))));
  EXPECT_EQ(configuration().keychain.kind, host::kSecretService);
  store(host::kSecretService, "stored-access");
  const Result second = token();
  EXPECT_EQ(second.output, "stored-access\n");
  EXPECT_EQ(second.error, "");
}

TEST_F(KeyringProgramTest, FirstUsePicksTheFilesWithoutABus) {
  const Result first = runWithoutBus({"token", "Google", kAccount.username});
  EXPECT_EQ(first.status, host::kNothingStored);
  EXPECT_THAT(first.error, HasSubstr("no desktop keyring here"));
  EXPECT_EQ(configuration().keychain.kind, host::kEncryptedFile);
  store(host::kEncryptedFile, "stored-access");
  EXPECT_EQ(token().output, "stored-access\n") << "the choice stays, whatever is there now";
}

TEST_F(KeyringProgramTest, WhoeverHasTokensInFilesFindsThemAfterAKeyringHasCome) {
  store(host::kEncryptedFile, "stored-access");
  const Result first = token();
  EXPECT_EQ(first.output, "stored-access\n");
  EXPECT_THAT(first.error, HasSubstr("Tokens stay in encrypted files"));
  EXPECT_EQ(token().error, "");
}

TEST_F(KeyringProgramTest, KeyringThatIsGoneIsSaidSoAndNothingElseIsUsed) {
  configure("secret-service");
  for (const Result& result :
       {runWithoutBus({"token", "Google", kAccount.username}), runWithoutBus({"accounts"}),
        runWithoutBus({"sign-out", "Google", kAccount.username})}) {
    EXPECT_EQ(result.status, host::kTryAgainLater);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, AllOf(HasSubstr("keyring, where tokens are kept, does not answer"),
                                    HasSubstr("`qvr-oauth2 keychain move file`")));
  }
  EXPECT_EQ(configuration().keychain.kind, host::kSecretService);
}

TEST_F(KeyringProgramTest, PromptOfTheKeyringIsAnnounced) {
  store(host::kSecretService, "stored-access");
  configure("secret-service");
  service.with([](support::FakeKeyring& keyring) {
    keyring.isLocked = true;
    keyring.prompt = support::FakeKeyring::Prompt::kWaits;
  });
  const auto child = start({"token", "Google", kAccount.username}, bus.address());
  ASSERT_TRUE(child->waitForError("most likely to be unlocked; waiting up to 60 s"))
      << child->error();
  service.answerPrompt(true);
  EXPECT_EQ(child->wait(), host::kDone) << child->error();
  EXPECT_EQ(child->output(), "stored-access\n");
}

TEST_F(KeyringProgramTest, KeyringThatNobodyCanUnlockIsSaidInPlainWords) {
  configure("secret-service");
  service.with([](support::FakeKeyring& keyring) {
    keyring.isLocked = true;
    keyring.prompt = support::FakeKeyring::Prompt::kDismisses;  // at once, as without a desktop
  });
  const Result result = token();
  EXPECT_EQ(result.status, host::kTryAgainLater);
  EXPECT_THAT(result.error, HasSubstr("keyring is locked and nobody could be asked"));
}

TEST_F(KeyringProgramTest, MovesToTheKeyringAndBack) {
  configure("encrypted-file");
  store(host::kEncryptedFile, "stored-access");
  const Result there = run({"keychain", "move", "secret-service"});
  EXPECT_EQ(there.status, host::kDone) << there.error;
  EXPECT_EQ(there.output, "Moved 1 account to the desktop's keyring.\n");
  EXPECT_EQ(there.error, "");
  EXPECT_EQ(configuration().keychain.kind, host::kSecretService);
  EXPECT_EQ(keyringItems(), 1u);
  EXPECT_EQ(token().output, "stored-access\n");
  const Result back = run({"keychain", "move", "file"});
  EXPECT_EQ(back.output, "Moved 1 account to the encrypted files.\n") << back.error;
  EXPECT_EQ(keyringItems(), 0u);
  EXPECT_EQ(token().output, "stored-access\n");
}

TEST_F(KeyringProgramTest, MovingToWhereTheyAreChangesNothing) {
  configure("encrypted-file");
  store(host::kEncryptedFile, "stored-access");
  const Result result = run({"keychain", "move", "file"});
  EXPECT_EQ(result.status, host::kDone);
  EXPECT_EQ(result.output, "Tokens are kept in the encrypted files already.\n");
  EXPECT_EQ(runWithoutBus({"keychain", "move", "file"}).output, result.output);
  EXPECT_EQ(token().output, "stored-access\n");
}

TEST_F(KeyringProgramTest, MoveThatWasInterruptedIsCompleted) {
  configure("secret-service");
  store(host::kSecretService, "moved-and-refreshed");
  store(host::kEncryptedFile, "left-behind", 600);
  const Result result = run({"keychain", "move", "secret-service"});
  EXPECT_EQ(result.output, "Moved 1 account to the desktop's keyring.\n") << result.error;
  EXPECT_EQ(token().output, "moved-and-refreshed\n");
  EXPECT_EQ(run({"keychain", "move", "secret-service"}).output,
            "Tokens are kept in the desktop's keyring already.\n");
}

TEST_F(KeyringProgramTest, OlderTokenIsReplacedAndANewerOneIsNot) {
  configure("encrypted-file");
  store(host::kEncryptedFile, "in-use", 60);
  store(host::kSecretService, "newer");
  const Result refused = run({"keychain", "move", "secret-service"});
  EXPECT_EQ(refused.status, host::kFailed);
  EXPECT_THAT(refused.error, AllOf(HasSubstr("The tokens were not moved."),
                                   HasSubstr("user@example.org at Google")));
  EXPECT_EQ(token().output, "in-use\n");
  store(host::kSecretService, "older", 600);
  const Result moved = run({"keychain", "move", "secret-service"});
  EXPECT_EQ(moved.status, host::kDone) << moved.error;
  EXPECT_THAT(moved.error, HasSubstr("An older token of user@example.org at Google was replaced."));
  EXPECT_EQ(token().output, "in-use\n");
}

TEST_F(KeyringProgramTest, MoveWithoutAKeyringSaysWhatToDo) {
  configure("encrypted-file");
  store(host::kEncryptedFile, "stored-access");
  const Result to = runWithoutBus({"keychain", "move", "secret-service"});
  EXPECT_EQ(to.status, host::kTryAgainLater);
  EXPECT_THAT(to.error, HasSubstr("no desktop keyring to move the tokens to"));
  EXPECT_EQ(configuration().keychain.kind, host::kEncryptedFile);
  EXPECT_EQ(token().output, "stored-access\n");
  configure("secret-service");
  const Result from = runWithoutBus({"keychain", "move", "file"});
  EXPECT_EQ(from.status, host::kTryAgainLater);
  EXPECT_THAT(from.error, AllOf(HasSubstr("start its keyring"),
                                HasSubstr("write kind = \"encrypted-file\" under [keychain]")));
  EXPECT_EQ(configuration().keychain.kind, host::kSecretService);
}

TEST_F(KeyringProgramTest, MoveToAKeyringThatKeepsNothingLeavesTheTokensWhereTheyAre) {
  configure("encrypted-file");
  store(host::kEncryptedFile, "stored-access");
  service.with([](support::FakeKeyring& keyring) { keyring.losesWrites = true; });
  const Result result = run({"keychain", "move", "secret-service"});
  EXPECT_NE(result.status, host::kDone);
  EXPECT_THAT(result.error, StartsWith("qvr-oauth2: The tokens were not moved. "));
  EXPECT_EQ(configuration().keychain.kind, host::kEncryptedFile);
  EXPECT_EQ(token().output, "stored-access\n");
}

TEST_F(KeyringProgramTest, MoveWaitsForNoSignInButSaysSo) {
  configure("encrypted-file");
  const auto working = host::ConfigurationLock::acquire(folder.file("config.toml"),
                                                        host::ConfigurationLock::Kind::kShared,
                                                        std::chrono::milliseconds(0));
  ASSERT_TRUE(std::holds_alternative<host::ConfigurationLock>(working));
  const Result result = run({"keychain", "move", "secret-service"});
  EXPECT_EQ(result.status, host::kTryAgainLater);
  EXPECT_THAT(result.error, HasSubstr("a sign-in that waits for its browser"));
}

TEST_F(KeyringProgramTest, MoveLeavesTheRestOfTheConfigurationAsItIs) {
  configure("encrypted-file");
  ASSERT_EQ(run({"keychain", "move", "secret-service"}).output,
            "Tokens are kept in the desktop's keyring now; there was none yet.\n");
  mode_t mode = 0;
  EXPECT_EQ(std::get<std::string>(host::readConfigurationText(folder.file("config.toml"), &mode)),
            "bundle_identifier = \"org.example.mail\" # kept\n"
            "[keychain]\ndirectory = \"items\"\nkey_file = \"key\"\nkind = \"secret-service\"\n");
  EXPECT_EQ(mode & 07777u, 0600u);
}

}  // namespace
}  // namespace host_test
