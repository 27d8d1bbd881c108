// Item files that are not what was written.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

#include "tests/ports/helpers/FileKeychainTest.h"

namespace ports_test {
namespace {

class EncryptedFileKeychainDamageTest : public FileKeychainTest {
 protected:
  void SetUp() override {
    keychain_ = open();
    ASSERT_EQ(Item{*keychain_}.add("secret"), qvr::errSecSuccess);
    damaged_ = onlyItemFile();
    whole_ = contentOf(damaged_);
    ASSERT_EQ(other().add("other secret"), qvr::errSecSuccess);
  }

  Item damaged() const { return {*keychain_}; }
  Item other() const { return {*keychain_, "Google.OAuth2Token", "other@example.com"}; }

  // The damage is told, and costs this one item only; nothing is deleted.
  void expectDamage() const {
    EXPECT_EQ(damaged().text(), "status -26275");
    EXPECT_EQ(damaged().probe(), qvr::errSecSuccess);
    EXPECT_EQ(damaged().add("x"), qvr::errSecDuplicateItem);
    EXPECT_TRUE(std::filesystem::is_symlink(damaged_) || std::filesystem::exists(damaged_));
    EXPECT_EQ(other().text(), "other secret");
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(keychain_->list(&names), qvr::errSecSuccess);
    EXPECT_EQ(1, std::ranges::count(
                     names, qvr::KeychainItemName{"Google.OAuth2Token", "other@example.com"}));
  }

  qvr::Ref<qvr::KeychainItems> keychain_;
  std::string damaged_;
  std::string whole_;
};

TEST_F(EncryptedFileKeychainDamageTest, EveryFlippedBitIsSeen) {
  for (std::size_t bit = 0; bit < 8 * whole_.size(); ++bit) {
    std::string flipped = whole_;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    setContent(damaged_, flipped);
    ASSERT_EQ(damaged().text(), "status -26275") << "bit " << bit;
  }
  expectDamage();
}

TEST_F(EncryptedFileKeychainDamageTest, EveryTruncationIsSeen) {
  for (std::size_t length = 0; length < whole_.size(); ++length) {
    setContent(damaged_, whole_.substr(0, length));
    ASSERT_EQ(damaged().text(), "status -26275") << length << " bytes";
  }
  expectDamage();
}

TEST_F(EncryptedFileKeychainDamageTest, ForeignAndOverlongFilesAreNoItems) {
  const std::string foreign[] = {"",
                                 "hello",
                                 whole_ + "x",
                                 std::string(4096, '\0'),
                                 std::string(qvr::kMaximumItemFileSize + 1, 'x'),
                                 whole_ + std::string(2 * qvr::kMaximumItemFileSize, 'x')};
  for (const std::string& content : foreign) {
    setContent(damaged_, content);
    expectDamage();
  }
}

TEST_F(EncryptedFileKeychainDamageTest, LengthsThatLieAreRefused) {
  for (const char* length : {"\xff\xff\xff\xff", "\0\0\0\x80", "\0\0\0\0", "\x27\0\0\0"}) {
    std::string lying = whole_;
    lying.replace(8, 4, length, 4);
    setContent(damaged_, lying);
    expectDamage();
  }
}

TEST_F(EncryptedFileKeychainDamageTest, AnotherItemsFileDoesNotPassForThisOne) {
  std::string otherFile;
  for (const std::string& name : namesEnding(directory(), ".item")) {
    if (inDirectory(name) != damaged_) otherFile = inDirectory(name);
  }
  setContent(damaged_, contentOf(otherFile));
  expectDamage();
  std::vector<qvr::KeychainItemName> names;
  ASSERT_EQ(keychain_->list(&names), qvr::errSecSuccess);
  EXPECT_EQ(names.size(), 1u);  // the copy is no second item
}

TEST_F(EncryptedFileKeychainDamageTest, ItemOfAnotherStoreIsForeign) {
  const auto second = qvr::makeEncryptedFileKeychain(
      {folder_.file("second"), folder_.file("second key"), std::nullopt});
  ASSERT_EQ(Item{*second}.add("foreign"), qvr::errSecSuccess);
  const auto names = namesEnding(folder_.file("second"), ".item");
  ASSERT_EQ(names.size(), 1u);
  setContent(damaged_, contentOf(folder_.file("second/" + names.front())));
  expectDamage();
}

TEST_F(EncryptedFileKeychainDamageTest, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
  std::filesystem::remove(damaged_);
  ASSERT_EQ(mkfifo(damaged_.c_str(), 0600), 0);
  expectDamage();
  std::filesystem::remove(damaged_);
  setContent(inDirectory("elsewhere"), whole_);
  std::filesystem::create_symlink("elsewhere", damaged_);
  expectDamage();
  std::filesystem::remove(damaged_);
  std::filesystem::create_directory(damaged_);
  expectDamage();
}

TEST_F(EncryptedFileKeychainDamageTest, SocketIsNoItem) {
  std::filesystem::remove(damaged_);
  const qvr::FileDescriptor socketFile(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // The path is too long for a socket's address, so it is made under a short name and moved.
  const std::string shortPath = folder_.file("s");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(shortPath.size(), sizeof address.sun_path);
  std::ranges::copy(shortPath, address.sun_path);
  ASSERT_EQ(bind(socketFile.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  std::filesystem::rename(shortPath, damaged_);
  expectDamage();
}

TEST_F(EncryptedFileKeychainDamageTest, ItemWithDamagedDataIsStillListed) {
  std::string flipped = whole_;
  flipped.back() = static_cast<char>(flipped.back() ^ 1);
  setContent(damaged_, flipped);
  std::vector<qvr::KeychainItemName> names;
  ASSERT_EQ(keychain_->list(&names), qvr::errSecSuccess);
  EXPECT_EQ(names.size(), 2u);
}

TEST_F(EncryptedFileKeychainDamageTest, DamagedItemCanBeReplaced) {
  setContent(damaged_, "damaged");
  ASSERT_EQ(damaged().probe(), qvr::errSecSuccess);
  ASSERT_EQ(damaged().update("fresh"), qvr::errSecSuccess);
  EXPECT_EQ(damaged().text(), "fresh");
}

TEST_F(EncryptedFileKeychainDamageTest, DamagedItemCanBeRemoved) {
  setContent(damaged_, "damaged");
  ASSERT_EQ(damaged().remove(), qvr::errSecSuccess);
  EXPECT_EQ(damaged().probe(), qvr::errSecItemNotFound);
}

TEST_F(EncryptedFileKeychainDamageTest, FilesOfOthersInTheFolderAreLeftAlone) {
  setContent(inDirectory("README"), "mine");
  setContent(inDirectory("short.item"), "mine too");
  ASSERT_EQ(damaged().update("x"), qvr::errSecSuccess);
  ASSERT_EQ(damaged().remove(), qvr::errSecSuccess);
  std::vector<qvr::KeychainItemName> names;
  ASSERT_EQ(keychain_->list(&names), qvr::errSecSuccess);
  EXPECT_EQ(names.size(), 1u);
  EXPECT_EQ(contentOf(inDirectory("README")), "mine");
  EXPECT_EQ(contentOf(inDirectory("short.item")), "mine too");
}

}  // namespace
}  // namespace ports_test
