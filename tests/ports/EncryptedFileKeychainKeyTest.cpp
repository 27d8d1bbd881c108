// Keys of the encrypted file keychain: which are refused, and that none is ever made beside items.

#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "tests/ports/helpers/FileKeychainTest.h"

namespace ports_test {
namespace {

class EncryptedFileKeychainKeyTest : public FileKeychainTest {
 protected:
  // Every operation answers this status, and changes nothing in the store.
  void expectRefusal(const qvr::Ref<qvr::KeychainItems>& keychain, std::int32_t status) {
    const auto before = std::filesystem::exists(header()) ? contentOf(header()) : "";
    const auto itemsBefore = namesEnding(directory(), ".item");
    std::vector<qvr::KeychainItemName> names;
    qvr::Data data;
    EXPECT_EQ(Item{*keychain}.probe(), status);
    EXPECT_EQ(Item{*keychain}.read(&data), status);
    EXPECT_EQ(Item{*keychain}.add("other"), status);
    EXPECT_EQ(Item{*keychain}.update("other"), status);
    EXPECT_EQ(Item{*keychain}.remove(), status);
    EXPECT_EQ(keychain->list(&names), status);
    EXPECT_EQ(std::filesystem::exists(header()) ? contentOf(header()) : "", before);
    EXPECT_EQ(namesEnding(directory(), ".item"), itemsBefore);
    EXPECT_EQ(leftovers(), 0u);
  }
};

TEST_F(EncryptedFileKeychainKeyTest, KeyFileThatOthersCanReachIsRefused) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  for (const mode_t mode : {0640u, 0604u, 0620u, 0610u, 0601u, 0777u}) {
    ASSERT_EQ(chmod(keyFile().c_str(), mode), 0);
    expectRefusal(open(), qvr::errSecAuthFailed);
  }
  ASSERT_EQ(chmod(keyFile().c_str(), 0400), 0);
  EXPECT_EQ(Item{*open()}.text(), "secret");
}

TEST_F(EncryptedFileKeychainKeyTest, ReadableKeyFileIsRefusedForANewStoreToo) {
  setContent(keyFile(), std::string(32, 'k'));
  ASSERT_EQ(chmod(keyFile().c_str(), 0644), 0);
  EXPECT_EQ(Item{*open()}.add("secret"), qvr::errSecAuthFailed);
  EXPECT_FALSE(std::filesystem::exists(header()));
}

TEST_F(EncryptedFileKeychainKeyTest, ReadyMadeKeyFileIsUsed) {
  folder_.write("key", std::string(32, 'k'));
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(contentOf(keyFile()), std::string(32, 'k'));
}

TEST_F(EncryptedFileKeychainKeyTest, KeyFileOfAnotherSizeIsNone) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  for (const std::size_t size : {0u, 1u, 31u, 33u, 4096u}) {
    setContent(keyFile(), std::string(size, 'k'));
    expectRefusal(open(), qvr::errSecInvalidKeychain);
  }
}

TEST_F(EncryptedFileKeychainKeyTest, NoKeyIsEverMadeBesideItems) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  std::filesystem::remove(keyFile());
  expectRefusal(open(), qvr::errSecAuthFailed);
  EXPECT_FALSE(std::filesystem::exists(keyFile()));
}

TEST_F(EncryptedFileKeychainKeyTest, NoHeaderIsEverMadeBesideItems) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  std::filesystem::remove(header());
  expectRefusal(open(), qvr::errSecInvalidKeychain);
}

TEST_F(EncryptedFileKeychainKeyTest, AnotherKeyIsToldFromADamagedItem) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  setContent(keyFile(), std::string(32, 'k'));
  expectRefusal(open(), qvr::errSecAuthFailed);
}

TEST_F(EncryptedFileKeychainKeyTest, KeyFileThatIsALinkOrAFolderIsRefused) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  std::filesystem::rename(keyFile(), folder_.file("elsewhere"));
  std::filesystem::create_symlink("elsewhere", keyFile());
  expectRefusal(open(), qvr::errSecAuthFailed);
  std::filesystem::remove(keyFile());
  ASSERT_EQ(mkdir(keyFile().c_str(), 0700), 0);
  expectRefusal(open(), qvr::errSecInvalidKeychain);
}

TEST_F(EncryptedFileKeychainKeyTest, FolderThatOthersCanReachIsRefused) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  for (const mode_t mode : {0750u, 0705u, 0710u, 0701u, 0777u}) {
    ASSERT_EQ(chmod(directory().c_str(), mode), 0);
    expectRefusal(open(), qvr::errSecAuthFailed);
  }
  ASSERT_EQ(chmod(directory().c_str(), 0700), 0);
  EXPECT_EQ(Item{*open()}.text(), "secret");
}

TEST_F(EncryptedFileKeychainKeyTest, FolderOfTheKeyThatOthersCanReachIsRefused) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  expectRefusal(open(), qvr::errSecAuthFailed);
}

TEST_F(EncryptedFileKeychainKeyTest, FolderThatIsALinkOrAFileIsRefused) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  std::filesystem::rename(directory(), folder_.file("elsewhere"));
  std::filesystem::create_symlink("elsewhere", directory());
  EXPECT_EQ(Item{*open()}.probe(), qvr::errSecAuthFailed);
  EXPECT_EQ(Item{*open()}.add("x"), qvr::errSecAuthFailed);
  std::filesystem::remove(directory());
  setContent(directory(), "a file");
  EXPECT_EQ(Item{*open()}.probe(), qvr::errSecAuthFailed);
  EXPECT_EQ(Item{*open()}.add("x"), qvr::errSecAuthFailed);
}

// Reports files whose mode fits as another user's.
class OtherUsersFiles final : public qvr::FileCalls {
 public:
  explicit OtherUsersFiles(mode_t type) : type_(type) {}

  int status(int file, struct stat* result) override {
    const int answer = FileCalls::status(file, result);
    if ((result->st_mode & S_IFMT) == type_) ++result->st_uid;
    return answer;
  }

 private:
  const mode_t type_;
};

TEST_F(EncryptedFileKeychainKeyTest, WhatIsAnotherUsersIsRefused) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  for (const mode_t type : {mode_t{S_IFDIR}, mode_t{S_IFREG}}) {
    OtherUsersFiles calls(type);
    expectRefusal(open(tuning(calls)), qvr::errSecAuthFailed);
  }
}

TEST_F(EncryptedFileKeychainKeyTest, PassphraseOpensTheStoreAgain) {
  ASSERT_EQ(Item{*openWithPassphrase("correct horse")}.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(Item{*openWithPassphrase("correct horse")}.text(), "secret");
}

TEST_F(EncryptedFileKeychainKeyTest, WrongPassphraseIsToldAndWritesNothing) {
  ASSERT_EQ(Item{*openWithPassphrase("correct horse")}.add("secret"), qvr::errSecSuccess);
  for (const char* wrong : {"", "correct horse ", "Correct horse"}) {
    expectRefusal(openWithPassphrase(wrong), qvr::errSecAuthFailed);
  }
  EXPECT_EQ(Item{*openWithPassphrase("correct horse")}.text(), "secret");
}

TEST_F(EncryptedFileKeychainKeyTest, EmptyAndBinaryPassphrasesAreKeysOfTheirOwn) {
  const std::string binary("\0b", 2);
  ASSERT_EQ(Item{*openWithPassphrase(binary)}.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(Item{*openWithPassphrase(binary)}.text(), "secret");
  EXPECT_EQ(Item{*openWithPassphrase("")}.probe(), qvr::errSecAuthFailed);
  std::filesystem::remove_all(directory());
  ASSERT_EQ(Item{*openWithPassphrase("")}.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(Item{*openWithPassphrase("")}.text(), "secret");
}

TEST_F(EncryptedFileKeychainKeyTest, PassphraseDoesNotOpenAStoreWithAKeyFile) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  expectRefusal(openWithPassphrase("passphrase"), qvr::errSecAuthFailed);
}

TEST_F(EncryptedFileKeychainKeyTest, KeyFileDoesNotOpenAStoreWithAPassphrase) {
  ASSERT_EQ(Item{*openWithPassphrase("passphrase")}.add("secret"), qvr::errSecSuccess);
  expectRefusal(open(), qvr::errSecAuthFailed);
  EXPECT_FALSE(std::filesystem::exists(keyFile()));
}

TEST_F(EncryptedFileKeychainKeyTest, EveryDamageOfTheHeaderIsSeen) {
  ASSERT_EQ(Item{*open()}.add("secret"), qvr::errSecSuccess);
  const std::string whole = contentOf(header());
  for (std::size_t index = 0; index < whole.size(); ++index) {
    std::string damaged = whole;
    damaged[index] = static_cast<char>(damaged[index] ^ 0x10);
    setContent(header(), damaged);
    EXPECT_EQ(Item{*open()}.text(), "status -25295") << index;
    setContent(header(), whole.substr(0, index));
    EXPECT_EQ(Item{*open()}.text(), "status -25295") << index;
  }
  setContent(header(), whole + "x");
  expectRefusal(open(), qvr::errSecInvalidKeychain);
  setContent(header(), whole);
  EXPECT_EQ(Item{*open()}.text(), "secret");
}

// A header whose digest is right but whose costs are out of bounds.
std::string headerAsking(std::string header, std::size_t offset, std::uint64_t cost) {
  for (std::size_t index = 0; index < 8; ++index) {
    header[offset + index] = static_cast<char>(cost >> (8 * index));
  }
  const std::size_t covered = header.size() - 32;
  crypto_generichash(reinterpret_cast<unsigned char*>(header.data()) + covered, 32,
                     reinterpret_cast<const unsigned char*>(header.data()), covered, nullptr, 0);
  return header;
}

TEST_F(EncryptedFileKeychainKeyTest, HeaderThatAsksForTheWholeMachineIsRefused) {
  ASSERT_EQ(Item{*openWithPassphrase("passphrase")}.add("secret"), qvr::errSecSuccess);
  const std::string whole = contentOf(header());
  for (const std::size_t offset : {12u, 20u}) {
    for (const std::uint64_t cost : {std::uint64_t{0}, std::uint64_t{1} << 40}) {
      setContent(header(), headerAsking(whole, offset, cost));
      expectRefusal(openWithPassphrase("passphrase"), qvr::errSecInvalidKeychain);
    }
  }
}

TEST_F(EncryptedFileKeychainKeyTest, PassphraseCostsWhatTheFactoryPromises) {
  ASSERT_EQ(Item{*qvr::makeEncryptedFileKeychain({directory(), "", "passphrase"})}.add("secret"),
            qvr::errSecSuccess);
  const std::string whole = contentOf(header());
  std::uint64_t memory = 0;
  for (std::size_t index = 8; index > 0; --index) {
    memory = memory << 8 | static_cast<unsigned char>(whole[20 + index - 1]);
  }
  EXPECT_EQ(memory, 256u << 20);
  EXPECT_EQ(Item{*openWithPassphrase("passphrase")}.text(), "secret");
}

}  // namespace
}  // namespace ports_test
