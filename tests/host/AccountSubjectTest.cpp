// Whose token an account has: what is noted, where, and what a note that is damaged proves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/AccountSubject.h"
#include "host/KeychainChoice.h"
#include "tests/host/ScopedVariable.h"
#include "tests/support/ChildProcess.h"

namespace host {
namespace {

constexpr const char* kBundle = "org.example.mail";
constexpr const char* kAliceId = "1 i alice-of-this-test";
constexpr const char* kBobId = "1 i bob-of-this-test";

class AccountSubjectTest : public testing::Test {
 protected:
  std::vector<std::filesystem::path> files() const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path()))
      if (entry.is_regular_file()) found.push_back(entry.path());
    return found;
  }

  std::filesystem::path onlyNote() const {
    const auto found = files();
    EXPECT_EQ(found.size(), 1u);
    return found.empty() ? std::filesystem::path() : found.front();
  }

  void writeNote(const std::string& text) { std::ofstream(onlyNote(), std::ios::trunc) << text; }

  support::TemporaryFolder folder_;
  host_test::ScopedVariable data_{"XDG_DATA_HOME", folder_.path()};
  const Account alice_{"Google", "alice@example.com"};
};

TEST_F(AccountSubjectTest, AnotherSubjectIsToldFromTheOneThatWasNoted) {
  noteSubject(kBundle, alice_, kAliceId);
  EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kAliceId));
  EXPECT_TRUE(isAnotherSubject(kBundle, alice_, kBobId));
  noteSubject(kBundle, alice_, kBobId);
  EXPECT_TRUE(isAnotherSubject(kBundle, alice_, kAliceId)) << "signing in anew did not count";
  EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kBobId));
}

TEST_F(AccountSubjectTest, NothingIsRefusedWithoutANote) {
  EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kAliceId));
  noteSubject(kBundle, alice_, kAliceId);
  forgetSubject(kBundle, alice_);
  EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kBobId));
  EXPECT_TRUE(files().empty()) << "a note was left behind";
  forgetSubject(kBundle, alice_);
}

TEST_F(AccountSubjectTest, EachApplicationProviderAndUserHasANoteOfItsOwn) {
  const std::vector<std::pair<std::string, Account>> accounts = {
      {"org.example.mail", {"Google", "alice@example.com"}},
      {"org.example.other", {"Google", "alice@example.com"}},
      {"org.example.mail", {"Microsoft", "alice@example.com"}},
      {"org.example.mail", {"Google", "bob@example.com"}},
      {"org.example.mailGoogle", {"", "alice@example.com"}},
      {"", {"org.example.mailGoogle", "alice@example.com"}},
  };
  for (std::size_t i = 0; i < accounts.size(); ++i)
    noteSubject(accounts[i].first, accounts[i].second, std::to_string(i));
  EXPECT_EQ(files().size(), accounts.size());
  for (std::size_t i = 0; i < accounts.size(); ++i) {
    EXPECT_FALSE(isAnotherSubject(accounts[i].first, accounts[i].second, std::to_string(i))) << i;
    EXPECT_TRUE(isAnotherSubject(accounts[i].first, accounts[i].second, "x")) << i;
  }
}

TEST_F(AccountSubjectTest, TheNoteIsPrivateAndTellsNeitherUserNorSubject) {
  noteSubject(kBundle, alice_, kAliceId);
  const std::filesystem::path note = onlyNote();
  EXPECT_EQ(note.parent_path(), std::filesystem::path(folder_.path()) / "qvr-oauth2/subjects");
  struct stat status = {};
  ASSERT_EQ(stat(note.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ASSERT_EQ(stat(note.parent_path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  std::ifstream file(note);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_FALSE(text.empty());
  for (const std::string& shown : {text, note.filename().string()}) {
    EXPECT_THAT(shown, testing::Not(testing::HasSubstr("alice")));
    EXPECT_THAT(shown, testing::Not(testing::HasSubstr("mail")));
  }
}

TEST_F(AccountSubjectTest, ADamagedNoteRefusesNothing) {
  noteSubject(kBundle, alice_, kAliceId);
  ASSERT_TRUE(isAnotherSubject(kBundle, alice_, kBobId));
  for (const std::string text : {"", "\n", "half a no", "far too long for a note of a subject\n"}) {
    writeNote(text);
    EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kBobId)) << text;
  }
  noteSubject(kBundle, alice_, kAliceId);
  EXPECT_TRUE(isAnotherSubject(kBundle, alice_, kBobId)) << "a new note did not mend it";
}

TEST_F(AccountSubjectTest, ANoteThatCannotBeReadRefusesNothing) {
  noteSubject(kBundle, alice_, kAliceId);
  const std::filesystem::path note = onlyNote();
  std::filesystem::remove(note);
  std::filesystem::create_directory(note);
  EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kBobId));
  noteSubject(kBundle, alice_, kAliceId);
  forgetSubject(kBundle, alice_);
  EXPECT_TRUE(std::filesystem::is_directory(note)) << "what is no note was touched";
}

TEST_F(AccountSubjectTest, APlaceThatCannotBeWrittenStopsNothing) {
  std::ofstream(folder_.path() + "/qvr-oauth2") << "a file where the folder should be";
  noteSubject(kBundle, alice_, kAliceId);
  EXPECT_FALSE(isAnotherSubject(kBundle, alice_, kBobId));
  forgetSubject(kBundle, alice_);
}

TEST_F(AccountSubjectTest, NotesDoNotCountAsItemsOfTheFileKeychain) {
  const auto configuration = parseConfiguration("bundle_identifier = \"org.example.mail\"\n",
                                                folder_.path() + "/config.toml");
  ASSERT_TRUE(std::holds_alternative<Configuration>(configuration));
  const auto& keychain = std::get<Configuration>(configuration).keychain;
  ASSERT_EQ(keychain.directory, folder_.path() + "/qvr-oauth2/items");
  noteSubject(kBundle, alice_, kAliceId);
  EXPECT_FALSE(isFileKeychainInUse(keychain));
}

}  // namespace
}  // namespace host
