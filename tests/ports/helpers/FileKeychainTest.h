// A store of its own for each test of the encrypted file keychain.
#pragma once

#include <gtest/gtest.h>
#include <sodium.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "src/ports/EncryptedFileKeychain.h"
#include "tests/ports/helpers/KeychainQueries.h"
#include "tests/support/ChildProcess.h"

namespace ports_test {

// The least that argon2id allows, since these tests are not about its cost.
inline constexpr qvr::PassphraseCost kCheapPassphrase{crypto_pwhash_argon2id_OPSLIMIT_MIN,
                                                      crypto_pwhash_argon2id_MEMLIMIT_MIN};

inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Makes a file anew, with mode 0600.
inline void setContent(const std::string& path, const std::string& content) {
  std::filesystem::remove(path);
  std::ofstream(path, std::ios::binary) << content;
  using std::filesystem::perms;
  std::filesystem::permissions(path, perms::owner_read | perms::owner_write);
}

// The names in a folder that end with `ending`.
inline std::vector<std::string> namesEnding(const std::string& folder, std::string_view ending) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::string name = entry.path().filename();
    if (name.ends_with(ending)) names.push_back(std::move(name));
  }
  return names;
}

class FileKeychainTest : public testing::Test {
 protected:
  using Tuning = qvr::EncryptedFileKeychain::Tuning;

  std::string directory() const { return folder_.file("keychain"); }
  std::string keyFile() const { return folder_.file("key"); }
  std::string inDirectory(const std::string& name) const { return directory() + "/" + name; }
  std::string header() const { return inDirectory("keychain-header"); }

  // The path of the one item file there is.
  std::string onlyItemFile() const {
    const std::vector<std::string> names = namesEnding(directory(), ".item");
    return names.size() == 1 ? inDirectory(names.front()) : "not one item file";
  }

  // Where files are written before they get their names.
  std::string inUnfinished(const std::string& name) const {
    return inDirectory(".keychain-unfinished/" + name);
  }

  std::size_t leftovers() const {
    const std::size_t misplaced = namesEnding(directory(), ".tmp").size();
    const std::string unfinished = inUnfinished("");
    if (!std::filesystem::exists(unfinished)) return misplaced;
    return misplaced + namesEnding(unfinished, ".tmp").size();
  }

  static Tuning tuning(qvr::FileCalls& calls = qvr::FileCalls::system()) {
    return {kCheapPassphrase, std::chrono::seconds(10), &calls};
  }

  // A keychain that has nothing in memory yet, as a new process has.
  qvr::Ref<qvr::KeychainItems> open(const Tuning& tuned = tuning()) const {
    return qvr::makeRef<qvr::EncryptedFileKeychain>(
        qvr::EncryptedFileKeychainOptions{directory(), keyFile(), std::nullopt}, tuned);
  }
  qvr::Ref<qvr::KeychainItems> openWithPassphrase(const std::string& passphrase,
                                                  const Tuning& tuned = tuning()) const {
    return qvr::makeRef<qvr::EncryptedFileKeychain>(
        qvr::EncryptedFileKeychainOptions{directory(), "", passphrase}, tuned);
  }

  const support::TemporaryFolder folder_;
};

}  // namespace ports_test
