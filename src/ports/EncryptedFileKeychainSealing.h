// The form of one item file of the encrypted file keychain.
//
//   "QVRKCI01"                    what this is, and its version
//   length of the name box        32 bits, little-endian
//   name box                      service and account, sealed
//   data box                      the item's data, sealed
//
// A box is a random nonce and XChaCha20-Poly1305 ciphertext. Each binds everything before it in the
// file, and the data box binds the service and account too, so no part can be exchanged, and no
// file can stand for another item. The names are sealed rather than written in clear: a copy of the
// folder (a backup, a synchronised home) then does not tell whose mailboxes these are. For the same
// reason a file is named by a keyed hash. They have a box of their own, so that an item whose data
// is damaged is still listed.
#pragma once

#include <optional>
#include <string>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "src/ports/ByteFields.h"
#include "src/ports/SecretBytes.h"

namespace qvr {

// Longer files are no items.
inline constexpr std::size_t kMaximumItemFileSize = 1 << 20;

inline constexpr std::size_t kMasterKeySize = 32;

// True for the names that items have in the folder.
bool isItemFileName(std::string_view name);

// Seals and unseals with keys that are derived from a store's master key. Immutable; may be used
// from any thread.
class ItemSealer {
 public:
  explicit ItemSealer(const SecretBytes& masterKey);

  // The name of an item's file: 64 hex digits and an extension, whatever the names hold.
  std::string fileName(const KeychainItemName& name) const;

  // The file of an item. Fails with errSecParam when it would be longer than an item may be.
  Data seal(const KeychainItemName& name, Bytes data) const;

  // The data of the named item. Fails with errSecDecode when the file is not that item, whole.
  Data unseal(const KeychainItemName& name, Bytes file) const;

  // The name of the item in a file; nothing when that cannot be read.
  std::optional<KeychainItemName> unsealName(Bytes file) const;

 private:
  SecretBytes sealingKey_;
  SecretBytes namingKey_;
};

}  // namespace qvr
