// What the encrypted file keychain leaves on disk.

#include <sys/stat.h>

#include "tests/ports/helpers/FileKeychainTest.h"

namespace ports_test {
namespace {

class EncryptedFileKeychainTest : public FileKeychainTest {};

mode_t modeOf(const std::string& path) {
  struct stat found {};
  EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
  return found.st_mode & 07777;
}

TEST_F(EncryptedFileKeychainTest, ItemsOutliveTheObject) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  const auto later = open();
  EXPECT_EQ(Item{*later}.text(), "secret");
  std::vector<qvr::KeychainItemName> names;
  ASSERT_EQ(later->list(&names), qvr::errSecSuccess);
  EXPECT_EQ(names,
            (std::vector<qvr::KeychainItemName>{{"Google.OAuth2Token", "user@example.com"}}));
}

TEST_F(EncryptedFileKeychainTest, LooksMakeNothing) {
  const auto keychain = open();
  std::vector<qvr::KeychainItemName> names;
  EXPECT_EQ(Item{*keychain}.text(), "status -25300");
  EXPECT_EQ(Item{*keychain}.update("x"), qvr::errSecItemNotFound);
  EXPECT_EQ(Item{*keychain}.remove(), qvr::errSecItemNotFound);
  EXPECT_EQ(keychain->list(&names), qvr::errSecSuccess);
  EXPECT_FALSE(std::filesystem::exists(directory()));
  EXPECT_FALSE(std::filesystem::exists(keyFile()));
}

TEST_F(EncryptedFileKeychainTest, FilesAndFoldersAreTheUsersAlone) {
  const std::string deep = folder_.file("one/two/keychain");
  const std::string key = folder_.file("three/four/key");
  const auto keychain = qvr::makeEncryptedFileKeychain({deep + "//", key, std::nullopt});
  ASSERT_EQ(Item{*keychain}.add("secret"), qvr::errSecSuccess);
  for (const char* made : {"one", "one/two", "one/two/keychain", "three", "three/four"}) {
    EXPECT_EQ(modeOf(folder_.file(made)), 0700u) << made;
  }
  EXPECT_EQ(modeOf(key), 0600u);
  EXPECT_EQ(std::filesystem::file_size(key), 32u);
  for (const auto& entry : std::filesystem::directory_iterator(deep)) {
    EXPECT_EQ(modeOf(entry.path()), entry.is_directory() ? 0700u : 0600u) << entry.path();
  }
}

TEST_F(EncryptedFileKeychainTest, FolderAndKeyMayBeNamedRelatively) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  const auto keychain = qvr::makeEncryptedFileKeychain({"keychain", "key", std::nullopt});
  EXPECT_EQ(Item{*keychain}.add("secret"), qvr::errSecSuccess);
  std::filesystem::current_path(before);
  EXPECT_EQ(Item{*open()}.text(), "secret");
}

TEST_F(EncryptedFileKeychainTest, KeyMayLieInTheStoresOwnFolder) {
  const qvr::EncryptedFileKeychainOptions options{directory(), inDirectory("key"), std::nullopt};
  ASSERT_EQ(Item{*qvr::makeEncryptedFileKeychain(options)}.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(Item{*qvr::makeEncryptedFileKeychain(options)}.text(), "secret");
}

TEST_F(EncryptedFileKeychainTest, StoresMayShareAKey) {
  const std::string other = folder_.file("other");
  ASSERT_EQ(Item{*open()}.add("one"), qvr::errSecSuccess);
  const std::string key = contentOf(keyFile());
  const auto second = qvr::makeEncryptedFileKeychain({other, keyFile(), std::nullopt});
  ASSERT_EQ(Item{*second}.add("two"), qvr::errSecSuccess);
  EXPECT_EQ(contentOf(keyFile()), key);
  EXPECT_EQ(Item{*open()}.text(), "one");
}

TEST_F(EncryptedFileKeychainTest, NeitherDataNorNamesAreOnDiskInClear) {
  ASSERT_EQ(Item{*open()}.add("very secret"), qvr::errSecSuccess);
  for (const auto& entry : std::filesystem::directory_iterator(directory())) {
    const std::string content = entry.is_directory() ? "" : contentOf(entry.path());
    const std::string seen = entry.path().filename().string() + content;
    for (const char* text : {"very secret", "Google.OAuth2Token", "user@example.com"}) {
      EXPECT_EQ(seen.find(text), std::string::npos) << entry.path() << " has " << text;
    }
  }
}

TEST_F(EncryptedFileKeychainTest, SameDataIsNeverSealedTheSameTwice) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  const std::string before = contentOf(onlyItemFile());
  ASSERT_EQ(Item{*open()}.update("secret"), qvr::errSecSuccess);
  EXPECT_NE(contentOf(onlyItemFile()), before);
}

TEST_F(EncryptedFileKeychainTest, ItemOfTheGreatestSizeIsKeptAndAGreaterOneRefused) {
  ASSERT_EQ(Item{*open()}.add(""), qvr::errSecSuccess);
  const std::size_t overhead = std::filesystem::file_size(onlyItemFile());
  const std::string greatest(qvr::kMaximumItemFileSize - overhead, 'x');
  ASSERT_EQ(Item{*open()}.update(greatest), qvr::errSecSuccess);
  EXPECT_EQ(Item{*open()}.text(), greatest);
  EXPECT_EQ(Item{*open()}.update(greatest + "x"), qvr::errSecParam);
  EXPECT_EQ((Item{*open(), "Google.OAuth2Token", "other"}.add(greatest + greatest)),
            qvr::errSecParam);
  EXPECT_EQ(Item{*open()}.text(), greatest);
}

TEST_F(EncryptedFileKeychainTest, OptionsThatNameNoPlaceAreRefused) {
  const qvr::EncryptedFileKeychainOptions bad[] = {
      {"", keyFile(), std::nullopt},
      {"", "", "passphrase"},
      {directory(), "", std::nullopt},
      {directory(), folder_.file("folder/"), std::nullopt},
  };
  for (const auto& options : bad) {
    const auto keychain = qvr::makeEncryptedFileKeychain(options);
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(Item{*keychain}.add("x"), qvr::errSecParam);
    EXPECT_EQ(Item{*keychain}.probe(), qvr::errSecParam);
    EXPECT_EQ(keychain->list(&names), qvr::errSecParam);
  }
}

TEST_F(EncryptedFileKeychainTest, AStoreThatIsReplacedWhileInUseIsReadWithItsOwnKey) {
  const auto keychain = openWithPassphrase("passphrase");
  ASSERT_EQ(Item{*keychain}.add("old"), qvr::errSecSuccess);
  std::filesystem::remove_all(directory());
  EXPECT_EQ(Item{*keychain}.probe(), qvr::errSecItemNotFound);
  ASSERT_EQ(Item{*openWithPassphrase("passphrase")}.add("new"), qvr::errSecSuccess);
  EXPECT_EQ(Item{*keychain}.text(), "new");
}

TEST_F(EncryptedFileKeychainTest, WhatKilledWritersLeftIsClearedAwayByTheNextWrite) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  setContent(inUnfinished(".keychain-0123456789abcdef.tmp"), "half an it");
  setContent(inUnfinished("notes.tmp"), "the user's own");
  EXPECT_EQ(Item{*open()}.text(), "secret");
  EXPECT_EQ(leftovers(), 2u);
  ASSERT_EQ(Item{*open()}.update("newer"), qvr::errSecSuccess);
  EXPECT_EQ(namesEnding(inUnfinished(""), ".tmp"), std::vector<std::string>{"notes.tmp"});
}

// There unfinished files lay among the finished ones.
TEST_F(EncryptedFileKeychainTest, WhatKilledWritersLeftInAStoreOfOldIsClearedAwayByTheNextWrite) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  std::filesystem::remove(inUnfinished(""));
  setContent(inDirectory(".keychain-0123456789abcdef.tmp"), "half an it");
  setContent(inDirectory("notes.tmp"), "the user's own");
  EXPECT_EQ(Item{*open()}.text(), "secret");
  EXPECT_EQ(leftovers(), 2u);
  ASSERT_EQ(Item{*open()}.update("newer"), qvr::errSecSuccess);
  EXPECT_EQ(namesEnding(directory(), ".tmp"), std::vector<std::string>{"notes.tmp"});
  EXPECT_EQ(Item{*open()}.text(), "newer");
}

TEST_F(EncryptedFileKeychainTest, AnotherFolderIsNeverWrittenThrough) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  const std::string elsewhere = folder_.file("elsewhere");
  std::filesystem::create_directory(elsewhere);
  setContent(elsewhere + "/.keychain-0123456789abcdef.tmp", "another's");
  std::filesystem::remove(inUnfinished(""));
  std::filesystem::create_directory_symlink(elsewhere, inDirectory(".keychain-unfinished"));
  EXPECT_EQ(Item{*open()}.update("newer"), qvr::errSecIO);
  EXPECT_EQ(Item{*open()}.text(), "secret");
  EXPECT_EQ(namesEnding(elsewhere, ".tmp").size(), 1u);
}

// Counts the names that are looked through.
class CountedNames final : public qvr::FileCalls {
 public:
  int listDirectory(int directory, std::vector<std::string>* names) override {
    const int result = FileCalls::listDirectory(directory, names);
    count_ += names->size();
    return result;
  }
  std::size_t count() const { return count_; }

 private:
  std::size_t count_ = 0;
};

TEST_F(EncryptedFileKeychainTest, OperationsOnAnItemDoNotLookThroughTheOthers) {
  for (int number = 0; number < 20; ++number)
    ASSERT_EQ((Item{*open(), "service", std::to_string(number)}.add("x")), qvr::errSecSuccess);
  CountedNames calls;
  const auto keychain = open(tuning(calls));
  ASSERT_EQ((Item{*keychain, "service", "7"}.update("y")), qvr::errSecSuccess);
  ASSERT_EQ((Item{*keychain, "service", "new"}.add("z")), qvr::errSecSuccess);
  ASSERT_EQ((Item{*keychain, "service", "8"}.text()), "x");
  ASSERT_EQ((Item{*keychain, "service", "9"}.remove()), qvr::errSecSuccess);
  EXPECT_LE(calls.count(), 2 * 2u);  // "." and ".." for each of the two writes
}

TEST(PathTest, ParentAndLastComponent) {
  const struct {
    const char* path;
    const char* parent;
    const char* last;
  } cases[] = {
      {"/a/b", "/a", "b"},  {"/a", "/", "a"},      {"a", ".", "a"}, {"a/b", "a", "b"},
      {"/a//b", "/a", "b"}, {"/a/b//", "/a", ""},  {"/", "/", ""},  {"", ".", ""},
      {"//a", "/", "a"},    {"./a/b", "./a", "b"},
  };
  for (const auto& [path, parent, last] : cases) {
    EXPECT_EQ(qvr::parentOfPath(path), parent) << path;
    EXPECT_EQ(qvr::lastComponentOfPath(path), last) << path;
  }
}

}  // namespace
}  // namespace ports_test
