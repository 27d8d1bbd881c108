// The keychain behind makeEncryptedFileKeychain: one sealed file per item in a private folder.
//
// Statuses, beyond those every port answers: errSecAuthFailed for a missing or wrong key and for a
// folder or key file that is another user's or open to others; errSecInvalidKeychain for a key file
// of the wrong size and for a damaged header; errSecDecode for an item file that is damaged, which
// can still be replaced and removed; errSecNotAvailable when other writers keep the store locked
// for longer than the deadline, so that a host tries again later.
//
// Readers take no lock: a file is replaced by a rename, and so is always whole.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/EncryptedFileKeychainFiles.h"
#include "src/ports/EncryptedFileKeychainKey.h"
#include "src/ports/EncryptedFileKeychainSealing.h"
#include "src/ports/FileCalls.h"

namespace qvr {

class EncryptedFileKeychain final : public KeychainItems {
 public:
  // What a test sets to run fast, and to see failures.
  struct Tuning {
    PassphraseCost passphraseCost = moderatePassphraseCost();
    std::chrono::milliseconds lockDeadline{10'000};
    FileCalls* fileCalls = &FileCalls::system();
  };

  EncryptedFileKeychain(const EncryptedFileKeychainOptions& options, const Tuning& tuning);

  std::int32_t copyMatching(const KeychainQuery& query, Data* result) override;
  std::int32_t add(const KeychainQuery& attributes) override;
  std::int32_t update(const KeychainQuery& query, const KeychainQuery& attributesToUpdate) override;
  std::int32_t remove(const KeychainQuery& query) override;

  // Leaves out a file whose name box is damaged: there is no name to tell.
  std::int32_t list(std::vector<KeychainItemName>* names) override;

 private:
  struct Store {
    PrivateDirectory directory;
    std::shared_ptr<const ItemSealer> sealer;
  };
  std::int32_t perform(const std::function<void()>& operation) const;
  std::optional<Store> existingStore();
  void changeItem(const KeychainItemName& name,
                  const std::function<void(const Store&, const std::string& fileName,
                                           const DirectoryLock& lock)>& change);

  const std::string directory_;
  const bool isUsable_;
  const Tuning tuning_;
  KeychainKey key_;
};

}  // namespace qvr
