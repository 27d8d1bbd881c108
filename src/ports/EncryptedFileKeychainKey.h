// The key of an encrypted file keychain: a random one in a key file, or one that is derived from a
// passphrase.
//
// A header file in the store's folder says which, and lets a wrong key be told from a damaged item:
//
//   "QVRKCS01"          what this is, and its version
//   kind                32 bits: 1 random key, 2 passphrase
//   operations, memory  64 bits each: the cost of argon2id; 0 for a random key
//   salt                16 bytes; zeros for a random key
//   check               32 bytes: keyed hash of what stands before, by the master key
//   digest              32 bytes: plain hash of what stands before, against damage
//
// Numbers are little-endian. The header is written before the first item and never changed.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Mutex.h"
#include "src/ports/EncryptedFileKeychainFiles.h"
#include "src/ports/EncryptedFileKeychainSealing.h"
#include "src/ports/SecretBytes.h"

namespace qvr {

// What deriving a key from a passphrase costs.
struct PassphraseCost {
  std::uint64_t operations;
  std::uint64_t memory;  // bytes
};

// About a second, and 256 MiB.
PassphraseCost moderatePassphraseCost();

// May be used from any thread. Fails by throwing KeychainFailure.
class KeychainKey {
 public:
  // `passphrase` is copied into locked memory; without one the key is in the file.
  KeychainKey(FileCalls& calls, std::string keyFile, const Text& passphrase, PassphraseCost cost,
              std::chrono::milliseconds lockDeadline);

  // The sealer of the store in the folder; null when none was made there yet. Fails with
  // errSecAuthFailed when the key is missing, wrong, or open to others, and with
  // errSecInvalidKeychain when the header is damaged, or missing beside items.
  std::shared_ptr<const ItemSealer> open(const PrivateDirectory& store);

  // The same, after making a store where there is none.
  std::shared_ptr<const ItemSealer> openOrMake(const PrivateDirectory& store,
                                               const DirectoryLock& lock);

 private:
  struct Header;
  void makeStore(const PrivateDirectory& store, const DirectoryLock& lock);
  std::shared_ptr<const ItemSealer> sealerFor(Bytes headerFile) const;
  Header newHeader() const;
  SecretBytes masterKey(const Header& header) const;
  SecretBytes derivedKey(const Header& header) const;
  std::optional<SecretBytes> keyFromFile(const PrivateDirectory& directory) const;
  void makeKeyFile(const PrivateDirectory& store, const DirectoryLock& lock) const;

  FileCalls& calls_;
  const std::string keyFile_;
  const std::optional<SecretBytes> passphrase_;
  const PassphraseCost cost_;
  const std::chrono::milliseconds lockDeadline_;

  // Held while a key is derived, so that threads that arrive together pay for that once.
  Mutex mutex_;
  Data header_ QVR_GUARDED_BY(mutex_);
  std::shared_ptr<const ItemSealer> sealer_ QVR_GUARDED_BY(mutex_);
};

}  // namespace qvr
