// `doctor` on the configuration, on the modes of files, and on the folder of the redirects.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "host/DoctorChecks.h"
#include "host/RedirectSocket.h"
#include "tests/host/ScopedVariable.h"
#include "tests/support/ChildProcess.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using State = Check::State;

class DoctorFiles : public testing::Test {
 protected:
  DoctorFiles() {
    for (const char* name : {"settings", "data", "data/items"})
      mkdir(folder.file(name).c_str(), 0700);
    configuration.path = folder.write("settings/config.toml", "");
    configuration.bundleIdentifier = "org.example.mail";
    configuration.google = {"example-client", "example-secret", "com.example.mail"};
    configuration.keychain.kind = kEncryptedFile;
    configuration.keychain.directory = folder.file("data/items");
    configuration.keychain.keyFile = folder.write("settings/key", "");
  }

  // What is said when a file or folder has the mode.
  Checks checksWithMode(const std::string& name, mode_t mode) const {
    EXPECT_EQ(chmod(folder.file(name).c_str(), mode), 0);
    return checkFileModes(configuration);
  }

  void expectProblem(const std::string& name, mode_t mode, const std::string& command) const {
    const Checks checks = checksWithMode(name, mode);
    ASSERT_FALSE(checks.empty());
    EXPECT_EQ(checks[0].state, State::kProblem) << name;
    EXPECT_THAT(checks[0].sentence, HasSubstr(folder.file(name)));
    EXPECT_THAT(checks[0].remedy, HasSubstr("`" + command + " " + folder.file(name) + "`"));
  }

  void expectFine() const {
    const Checks checks = checkFileModes(configuration);
    EXPECT_EQ(checks.size(), 1u);
    EXPECT_EQ(checks.at(0).state, State::kOk) << checks.at(0).sentence;
  }

  support::TemporaryFolder folder;
  Configuration configuration;
};

TEST_F(DoctorFiles, ThatAreTheUsersOwnAreFine) {
  expectFine();
}

TEST_F(DoctorFiles, ThatAreNotThereYetAreFine) {
  configuration.keychain.directory = folder.file("none/items");
  configuration.keychain.keyFile = folder.file("none/key");
  expectFine();
}

TEST_F(DoctorFiles, HoldingASecretAreClosedToOthers) {
  expectProblem("settings/config.toml", 0640, "chmod 600");
  configuration.google.clientSecret.clear();
  expectFine();
}

TEST_F(DoctorFiles, OfTheConfigurationCanNotBeChangedByOthers) {
  configuration.google.clientSecret.clear();
  expectProblem("settings/config.toml", 0620, "chmod 600");
  checksWithMode("settings/config.toml", 0600);
  configuration.keychain.protection = "passphrase";
  expectProblem("settings", 0777, "chmod go-w");
}

TEST_F(DoctorFiles, BelowAStickyFolderAreTheUsersOwn) {
  configuration.keychain.protection = "passphrase";
  EXPECT_EQ(checksWithMode("settings", 01777).at(0).state, State::kOk);
}

TEST_F(DoctorFiles, OfTheKeyAreClosedToOthers) {
  expectProblem("settings/key", 0644, "chmod 600");
}

TEST_F(DoctorFiles, OfTheItemsLieInAPrivateFolder) {
  expectProblem("data/items", 0755, "chmod 700");
  EXPECT_EQ(checkFileModes(configuration).at(0).sentence,
            "The folder " + folder.file("data/items") + " is open to other users.")
      << "the remedy has the command";
}

TEST_F(DoctorFiles, OfTheItemsLieInNoSymbolicLink) {
  std::filesystem::create_symlink(folder.file("data/items"), folder.file("link"));
  configuration.keychain.directory = folder.file("link");
  const Checks checks = checkFileModes(configuration);
  EXPECT_EQ(checks.at(0).state, State::kProblem);
  EXPECT_THAT(checks.at(0).sentence, HasSubstr("is not a folder"));
  EXPECT_THAT(checks.at(0).remedy, Not(HasSubstr("chmod")));
}

TEST_F(DoctorFiles, OfAnUnusedKeychainDoNotMatter) {
  configuration.keychain.kind = kSecretService;
  EXPECT_EQ(checksWithMode("data/items", 0755).at(0).state, State::kOk);
}

class DoctorRuntime : public testing::Test {
 protected:
  support::TemporaryFolder folder;
};

TEST_F(DoctorRuntime, LeavesTheFolderAsItWas) {
  EXPECT_EQ(checkRuntimeFolder(folder.file("run/qvr-oauth2")).state, State::kOk);
  EXPECT_FALSE(std::filesystem::exists(folder.file("run")));
  mkdir(folder.file("there").c_str(), 0700);
  EXPECT_EQ(checkRuntimeFolder(folder.file("there")).state, State::kOk);
  EXPECT_TRUE(std::filesystem::is_empty(folder.file("there")));
}

TEST_F(DoctorRuntime, LeavesASignInThatWaitsAlone) {
  std::optional<Failure> failure;
  const auto waiting = RedirectListener::listen(folder.path(), "state", &failure);
  ASSERT_TRUE(waiting);
  EXPECT_EQ(checkRuntimeFolder(folder.path()).state, State::kOk);
  EXPECT_TRUE(std::filesystem::exists(folder.file(redirectSocketName("state"))));
}

TEST_F(DoctorRuntime, NamesAFolderThatIsOpenToOthers) {
  mkdir(folder.file("open").c_str(), 0700);
  chmod(folder.file("open").c_str(), 0755);
  const Check check = checkRuntimeFolder(folder.file("open"));
  EXPECT_EQ(check.state, State::kProblem);
  EXPECT_THAT(check.sentence, HasSubstr("chmod 700"));
  EXPECT_THAT(check.remedy, HasSubstr("XDG_RUNTIME_DIR"));
}

TEST_F(DoctorRuntime, NamesAPathThatIsTooLongForASocket) {
  const std::string path = folder.file(std::string(100, 'x'));
  const Check check = checkRuntimeFolder(path);
  EXPECT_EQ(check.state, State::kProblem);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DoctorRuntime, WarnsOfASessionWithoutABus) {
  const Check check = checkSessionBus({.busName = "org.example.test",
                                       .busAddress = "unix:path=" + folder.file("none"),
                                       .timeoutSeconds = 5});
  EXPECT_EQ(check.state, State::kWarning);
  EXPECT_NE(check.sentence, "");
  EXPECT_THAT(check.remedy, HasSubstr("runtime folder"));
}

TEST(DoctorConfiguration, SaysWhereItIs) {
  const Checks checks = checkConfiguration(Configuration(), "/a/config.toml");
  ASSERT_EQ(checks.size(), 1u);
  EXPECT_EQ(checks[0].state, State::kOk);
  EXPECT_THAT(checks[0].sentence, HasSubstr("/a/config.toml"));
}

TEST(DoctorConfiguration, ThatCannotBeReadIsAProblemWithTheCommand) {
  const support::TemporaryFolder folder;
  const std::string path = folder.write("a config.toml", "none");
  const Checks checks = checkConfiguration(Failure{kFailed, "It is not TOML."}, path);
  ASSERT_EQ(checks.size(), 1u);
  EXPECT_EQ(checks[0].state, State::kProblem);
  EXPECT_EQ(checks[0].sentence, "It is not TOML.");
  EXPECT_THAT(checks[0].remedy, AllOf(HasSubstr("Correct the file"),
                                      HasSubstr("`qvr-oauth2 --config '" + path + "' config`")));
}

TEST(DoctorConfiguration, ThatIsMissingIsToBeWritten) {
  const support::TemporaryFolder folder;
  const host_test::ScopedVariable settings("XDG_CONFIG_HOME", folder.path());
  const auto check = [](const std::string& path) {
    return checkConfiguration(readConfiguration(path), path).at(0);
  };
  const std::string path = *defaultConfigurationPath();
  EXPECT_EQ(check(path).state, State::kProblem);
  EXPECT_EQ(check(path).sentence, "There is no configuration at " + path + ".");
  EXPECT_THAT(check(path).remedy, testing::StartsWith("`qvr-oauth2 config` "));
  EXPECT_THAT(check(folder.file("other")).remedy,
              testing::StartsWith("`qvr-oauth2 --config " + folder.file("other") + " config` "));
}

TEST(DoctorConfiguration, PassesItsWarningsOn) {
  Configuration configuration;
  configuration.warnings = {"First.", "Second."};
  const Checks checks = checkConfiguration(configuration, "/a/config.toml");
  ASSERT_EQ(checks.size(), 2u);
  EXPECT_EQ(checks[1].state, State::kWarning);
  EXPECT_EQ(checks[1].sentence, "Second.");
}

TEST(DoctorRegistrations, AreNeededAtOneProvider) {
  Configuration configuration;
  const Check none = checkRegistrations(configuration);
  EXPECT_EQ(none.state, State::kProblem);
  EXPECT_THAT(none.remedy, HasSubstr("config"));
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  const Check one = checkRegistrations(configuration);
  EXPECT_EQ(one.state, State::kOk);
  EXPECT_EQ(one.sentence, "Microsoft is registered, Google is not.");
  configuration.google = {"example-client", "", "com.example.mail"};
  EXPECT_EQ(checkRegistrations(configuration).sentence, "Google and Microsoft are registered.");
  configuration.microsoft.applicationIdentifier.clear();
  EXPECT_EQ(checkRegistrations(configuration).sentence, "Google is registered, Microsoft is not.");
}

TEST(DoctorRegistrations, ThatAreHalfThereAreNamed) {
  Configuration configuration;
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  configuration.google.clientIdentifier = "example-client";
  const Check check = checkRegistrations(configuration);
  EXPECT_EQ(check.state, State::kWarning);
  EXPECT_THAT(check.sentence, HasSubstr("holds no custom_uri_scheme"));
}

}  // namespace
}  // namespace host
