// `doctor` on the keychain, and the trial that it and `sign-in` make of one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "host/DoctorChecks.h"
#include "host/KeychainTrial.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeKeychain.h"

namespace host {
namespace {

using support::FakeKeychain;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using State = Check::State;
using Kind = qvr::SecretServiceState::Kind;

class KeychainTrial : public testing::Test {
 protected:
  std::string problem() const {
    const auto failure = roundTripProblem(*keychain, kEncryptedFile);
    return failure ? failure->sentence : "";
  }

  // Before it is read.
  void changeWhatIsStored() const {
    keychain->onCall([this](const FakeKeychain::Call& call) {
      if (call.operation != "copyMatching") return;
      const auto text = [&call](std::string_view key) {
        return *call.query.at(std::string(key)).as<std::string>();
      };
      keychain->put(text(qvr::kSecAttrService), text(qvr::kSecAttrAccount), {1, 2, 3});
    });
  }

  const qvr::Ref<FakeKeychain> keychain = qvr::makeRef<FakeKeychain>();
};

TEST_F(KeychainTrial, StoresReadsAndRemovesAnItem) {
  EXPECT_EQ(problem(), "");
  EXPECT_EQ(keychain->count("add"), 1u);
  EXPECT_EQ(keychain->count("copyMatching"), 1u);
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(KeychainTrial, NeverNamesTwoItemsAlike) {
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(problem(), "");
  std::set<std::string> accounts;
  for (const FakeKeychain::Call& call : keychain->calls())
    accounts.insert(*call.query.at(std::string(qvr::kSecAttrAccount)).as<std::string>());
  EXPECT_EQ(accounts.size(), 20u);
}

TEST_F(KeychainTrial, RemovesTheItemThatCannotBeRead) {
  keychain->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  EXPECT_THAT(problem(), HasSubstr("locked"));
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(KeychainTrial, TellsAKeychainThatLosesWhatItTook) {
  keychain->failEvery("copyMatching", qvr::errSecItemNotFound);
  EXPECT_THAT(problem(), HasSubstr("does not give back"));
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(KeychainTrial, TellsAKeychainThatChangesWhatItTook) {
  changeWhatIsStored();
  EXPECT_THAT(problem(), HasSubstr("does not give back"));
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(KeychainTrial, NamesWhatKeepsAnItemFromBeingStoredOrRemoved) {
  keychain->failEvery("add", qvr::errSecDiskFull);
  EXPECT_THAT(problem(), HasSubstr("disk is full"));
  keychain->failEvery("remove", qvr::errSecWrPerm);
  EXPECT_THAT(problem(), HasSubstr("not yours to write"));
}

TEST_F(KeychainTrial, NamesTheItemThatItCouldNotRemove) {
  for (const std::int32_t status : {qvr::errSecUserCanceled, qvr::errSecInteractionNotAllowed}) {
    keychain->failEvery("remove", status);
    const auto failure = roundTripProblem(*keychain, kSecretService);
    ASSERT_TRUE(failure);
    const auto query = keychain->calls().back().query;
    EXPECT_THAT(failure->sentence,
                AllOf(HasSubstr("since nobody allowed it"), Not(HasSubstr("unlock")),
                      HasSubstr(*query.at(std::string(qvr::kSecAttrService)).as<std::string>()),
                      HasSubstr(*query.at(std::string(qvr::kSecAttrAccount)).as<std::string>())));
  }
}

TEST_F(KeychainTrial, SaysThatAnItemStaysBesideWhatElseIsWrong) {
  changeWhatIsStored();
  keychain->failEvery("remove", qvr::errSecWrPerm);
  EXPECT_THAT(problem(), AllOf(HasSubstr("does not give back"), HasSubstr("could not be removed"),
                               HasSubstr("the account \"check-")));
}

TEST_F(KeychainTrial, OfASignInOnlyLooksIntoAKeyring) {
  EXPECT_FALSE(keychainProblem(*keychain, kSecretService));
  EXPECT_EQ(keychain->count("copyMatching"), 1u);
  EXPECT_EQ(keychain->calls().size(), 1u);
  EXPECT_FALSE(keychainProblem(*keychain, kEncryptedFile));
  EXPECT_EQ(keychain->count("add"), 1u);
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(KeychainTrial, OfASignInTellsAKeyringThatDoesNotAnswer) {
  keychain->failEvery("copyMatching", qvr::errSecNotAvailable);
  const auto failure = keychainProblem(*keychain, kSecretService);
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->sentence, HasSubstr("does not answer"));
  EXPECT_EQ(failure->status, kTryAgainLater);
}

class DoctorKeychain : public testing::Test {
 protected:
  DoctorKeychain() {
    configuration.path = folder.file("config.toml");
    configuration.bundleIdentifier = "org.example.mail";
    configuration.keychain.directory = folder.file("data/items");
    configuration.keychain.keyFile = folder.file("settings/key");
  }

  Check check() const {
    return checkKeychain(configuration, {.examineSecretService = [this] { return service; },
                                         .makeSecretService = [this] { return keyring; },
                                         .makeFiles =
                                             [](const Configuration::Keychain& keychain) {
                                               return makeKeychain(kEncryptedFile, keychain);
                                             }});
  }

  // Stores an item in the encrypted files, as an earlier sign-in did.
  void useFiles(const qvr::Text& passphrase = std::nullopt) const {
    const auto files = qvr::makeEncryptedFileKeychain(
        {configuration.keychain.directory, configuration.keychain.keyFile, passphrase});
    ASSERT_EQ(files->add({{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
                          {std::string(qvr::kSecAttrService), "service"},
                          {std::string(qvr::kSecAttrAccount), "account"},
                          {std::string(qvr::kSecValueData), qvr::Data{1}}}),
              0);
  }

  auto saysHowToAbandon() const {
    return HasSubstr("write kind = \"encrypted-file\" under [keychain] in " + configuration.path +
                     " and sign in again");
  }

  // The paths of all that there is.
  std::set<std::string> everything() const {
    std::set<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
      paths.insert(entry.path());
    return paths;
  }

  support::TemporaryFolder folder;
  Configuration configuration;
  qvr::SecretServiceState service{Kind::kAbsent, "There is no bus."};
  const qvr::Ref<FakeKeychain> keyring = qvr::makeRef<FakeKeychain>();
};

TEST_F(DoctorKeychain, TriesTheKeyringThatIsOpen) {
  configuration.keychain.kind = kSecretService;
  service = {Kind::kReady, ""};
  const Check result = check();
  EXPECT_EQ(result.state, State::kOk) << result.sentence;
  EXPECT_EQ(keyring->count("add"), 1u);
  EXPECT_EQ(keyring->itemCount(), 0u);
}

TEST_F(DoctorKeychain, SaysThatTheKeyringIsLockedAndLeavesItAlone) {
  configuration.keychain.kind = kSecretService;
  service = {Kind::kLocked, "The keyring \"Login\" is locked."};
  const Check result = check();
  EXPECT_EQ(result.state, State::kWarning);
  EXPECT_THAT(result.sentence, HasSubstr("The keyring \"Login\" is locked."));
  EXPECT_THAT(result.remedy, HasSubstr("Unlock"));
  EXPECT_TRUE(keyring->calls().empty());
}

TEST_F(DoctorKeychain, MissesTheKeyringThatWasChosen) {
  configuration.keychain.kind = kSecretService;
  const Check result = check();
  EXPECT_EQ(result.state, State::kProblem);
  EXPECT_THAT(result.sentence, HasSubstr("There is no bus."));
  EXPECT_THAT(result.remedy, AllOf(HasSubstr("Start the desktop's keyring"), saysHowToAbandon(),
                                   Not(HasSubstr("keychain move"))));
}

TEST_F(DoctorKeychain, NamesWhatTheKeyringAnswers) {
  configuration.keychain.kind = kSecretService;
  service = {Kind::kReady, ""};
  keyring->failEvery("add", qvr::errSecNotAvailable);
  const Check result = check();
  EXPECT_EQ(result.state, State::kProblem);
  EXPECT_THAT(result.sentence,
              HasSubstr("The desktop's keyring, where tokens are kept, does not answer"));
  EXPECT_THAT(result.remedy, HasSubstr("qvr-oauth2 keychain move file")) << "it can be read";
  keyring->failEvery("copyMatching", qvr::errSecNotAvailable);
  EXPECT_THAT(check().remedy, AllOf(saysHowToAbandon(), Not(HasSubstr("keychain move"))));
}

TEST_F(DoctorKeychain, TriesTheFilesThatAreInUse) {
  configuration.keychain.kind = kEncryptedFile;
  useFiles();
  const auto before = everything();
  const Check result = check();
  EXPECT_EQ(result.state, State::kOk) << result.sentence;
  EXPECT_EQ(everything(), before);
}

TEST_F(DoctorKeychain, MakesNoFilesWhereThereAreNone) {
  configuration.keychain.kind = kEncryptedFile;
  const Check result = check();
  EXPECT_EQ(result.state, State::kOk) << result.sentence;
  EXPECT_TRUE(everything().empty());
}

TEST_F(DoctorKeychain, NamesAPlaceWhereNoFilesCanBe) {
  configuration.keychain.kind = kEncryptedFile;
  configuration.keychain.directory = "/proc/none/items";
  const Check result = check();
  EXPECT_EQ(result.state, State::kProblem);
  EXPECT_THAT(result.sentence, HasSubstr("/proc/none/items cannot be made"));
}

TEST_F(DoctorKeychain, NamesFoldersThatTheFirstItemWouldFindOpenToOthers) {
  configuration.keychain.kind = kEncryptedFile;
  for (const std::string& path : {folder.file("settings"), configuration.keychain.directory}) {
    std::filesystem::create_directories(path);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    const Check result = check();
    EXPECT_EQ(result.state, State::kProblem);
    EXPECT_EQ(result.sentence, "The folder " + path + " is open to other users.");
    EXPECT_THAT(result.remedy, HasSubstr("`chmod 700 " + path + "`"));
    std::filesystem::permissions(path, std::filesystem::perms(0700));
  }
  EXPECT_EQ(check().state, State::kOk);
  configuration.keychain.protection = "passphrase";
  std::filesystem::permissions(folder.file("settings"), std::filesystem::perms(0755));
  EXPECT_EQ(check().state, State::kOk) << "it has no key";
}

TEST_F(DoctorKeychain, NamesAKeyThatIsOpenToOthers) {
  configuration.keychain.kind = kEncryptedFile;
  useFiles();
  std::filesystem::permissions(configuration.keychain.keyFile, std::filesystem::perms(0644));
  const Check result = check();
  EXPECT_EQ(result.state, State::kProblem);
  EXPECT_THAT(result.sentence, HasSubstr("chmod 600"));
  EXPECT_THAT(result.remedy, Not(HasSubstr("keychain move"))) << "it cannot be read";
}

TEST_F(DoctorKeychain, TakesThePassphraseFromItsCommand) {
  configuration.keychain.kind = kEncryptedFile;
  configuration.keychain.protection = "passphrase";
  configuration.keychain.passphraseCommand = "echo correct horse";
  useFiles("correct horse");
  EXPECT_EQ(check().state, State::kOk);
  configuration.keychain.passphraseCommand = "echo wrong horse";
  EXPECT_THAT(check().sentence, HasSubstr("passphrase is not the right one"));
  configuration.keychain.passphraseCommand = "false";
  const Check failed = check();
  EXPECT_EQ(failed.state, State::kProblem);
  EXPECT_THAT(failed.remedy, HasSubstr("passphrase_command"));
}

TEST_F(DoctorKeychain, WritesNoChoiceAndSaysWhatItWouldBe) {
  const Check files = check();
  EXPECT_EQ(files.state, State::kOk) << files.sentence;
  EXPECT_THAT(files.sentence, HasSubstr("Not chosen yet; would be: the encrypted files"));
  service = {Kind::kReady, ""};
  EXPECT_THAT(check().sentence, HasSubstr("Not chosen yet; would be: the desktop's keyring"));
  EXPECT_EQ(keyring->count("add"), 1u);
  useFiles();
  EXPECT_THAT(check().sentence, HasSubstr("would be: the encrypted files"));
}

}  // namespace
}  // namespace host
