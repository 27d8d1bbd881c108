// The keychain behind makeSecretServiceKeychain: items of the desktop's keyring, found by their
// attributes "service" and "account".
//
// One connection serves all calls. It is made with the first, and anew when the service or the bus
// went away; a call that finds that out is done once more on the new one.
//
// Statuses, beyond those every port answers: errSecParam also for a name that D-Bus cannot carry
// (no UTF-8, or a NUL in it); errSecDecode for an item whose value is not one of ours, which can
// still be replaced and removed; errSecNotAvailable also when other writers hold the lock, or the
// service keeps its answer back, for longer than the deadline; errSecAuthFailed when the folder of
// the lock is another user's or open to others.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Mutex.h"
#include "src/ports/EncryptedFileKeychainFiles.h"
#include "src/ports/SecretService.h"

namespace qvr {

class SecretServiceKeychain final : public KeychainItems {
 public:
  // `lockFolder`, closed to others, is where the writers wait for each other; it is made when it is
  // missing. Empty for the one that all programs of the user share.
  explicit SecretServiceKeychain(SecretServiceOptions options, std::string lockFolder = {})
      : options_(std::move(options)), lockFolder_(std::move(lockFolder)) {}

  std::int32_t copyMatching(const KeychainQuery& query, Data* result) override;
  std::int32_t add(const KeychainQuery& attributes) override;
  std::int32_t update(const KeychainQuery& query, const KeychainQuery& attributesToUpdate) override;

  // Removes every item with these attributes: another client may have made a second one.
  std::int32_t remove(const KeychainQuery& query) override;

  // The items whose service is one that the library's keychain store makes, of the default keyring
  // and of all others that are open: what was added before the user chose another default one is
  // found there by the other operations, too.
  std::int32_t list(std::vector<KeychainItemName>* names) override;

 private:
  DirectoryLock lockWriters(std::chrono::milliseconds deadline) const;
  std::int32_t perform(const std::function<void(SecretService&)>& operation);
  void performOnce(const std::function<void(SecretService&)>& operation) QVR_REQUIRES(mutex_);

  const SecretServiceOptions options_;
  const std::string lockFolder_;
  Mutex mutex_;
  std::unique_ptr<SecretService> service_ QVR_GUARDED_BY(mutex_);
};

}  // namespace qvr
