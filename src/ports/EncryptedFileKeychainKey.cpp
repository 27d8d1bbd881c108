#include "src/ports/EncryptedFileKeychainKey.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <new>

namespace qvr {

namespace {

constexpr std::string_view kHeaderName = "keychain-header";
constexpr std::string_view kMagic = "QVRKCS01";
constexpr std::size_t kHashSize = 32;
constexpr std::uint32_t kRandomKey = 1;
constexpr std::uint32_t kPassphraseKey = 2;

// A header that asks for more is not ours, and must not take the machine down.
constexpr std::uint64_t kMaximumOperations = 16;
constexpr std::uint64_t kMaximumMemory = std::uint64_t{1} << 30;

using Hash = std::array<std::uint8_t, kHashSize>;

Hash hashOf(Bytes bytes, Bytes key) {
  Hash hash;
  crypto_generichash(hash.data(), hash.size(), bytes.data(), bytes.size(), key.data(), key.size());
  return hash;
}

bool areEqual(Bytes a, Bytes b) {
  return a.size() == b.size() && sodium_memcmp(a.data(), b.data(), a.size()) == 0;
}

bool holdsItems(const PrivateDirectory& store) {
  return std::ranges::any_of(store.names(), isItemFileName);
}

std::optional<SecretBytes> copiedPassphrase(const Text& passphrase) {
  if (!passphrase) return std::nullopt;
  std::optional<SecretBytes> copy(std::in_place, passphrase->size());
  std::ranges::copy(*passphrase, copy->data());
  return copy;
}

}  // namespace

PassphraseCost moderatePassphraseCost() {
  return {crypto_pwhash_argon2id_OPSLIMIT_MODERATE, crypto_pwhash_argon2id_MEMLIMIT_MODERATE};
}

struct KeychainKey::Header {
  std::uint32_t kind = kRandomKey;
  PassphraseCost cost{0, 0};
  std::array<std::uint8_t, crypto_pwhash_argon2id_SALTBYTES> salt{};

  static constexpr std::size_t kFieldsSize = kMagic.size() + 4 + 8 + 8 + sizeof(salt);
  static constexpr std::size_t kFileSize = kFieldsSize + 2 * kHashSize;

  // What the check value covers.
  Data fields() const {
    Data fields;
    appendBytes(fields, bytesOf(kMagic));
    appendNumber(fields, kind);
    appendNumber(fields, cost.operations);
    appendNumber(fields, cost.memory);
    appendBytes(fields, salt);
    return fields;
  }

  Hash check(const SecretBytes& masterKey) const {
    return hashOf(fields(), {masterKey.data(), masterKey.size()});
  }

  Data file(const SecretBytes& masterKey) const {
    Data file = fields();
    appendBytes(file, check(masterKey));
    appendBytes(file, hashOf(file, {}));
    return file;
  }

  bool isSound() const {
    if (kind == kRandomKey) return true;
    return kind == kPassphraseKey && cost.operations >= crypto_pwhash_argon2id_OPSLIMIT_MIN &&
           cost.operations <= kMaximumOperations &&
           cost.memory >= crypto_pwhash_argon2id_MEMLIMIT_MIN && cost.memory <= kMaximumMemory;
  }

  // Fails with errSecInvalidKeychain for anything but a header of this version.
  static Header read(Bytes file) {
    const bool whole =
        file.size() == kFileSize &&
        areEqual(hashOf(file.first(kFileSize - kHashSize), {}), file.last(kHashSize)) &&
        areEqual(file.first(kMagic.size()), bytesOf(kMagic));
    if (!whole) throw KeychainFailure{errSecInvalidKeychain};
    FieldReader reader(file.subspan(kMagic.size()));
    Header header;
    header.kind = *reader.number<std::uint32_t>();
    header.cost.operations = *reader.number<std::uint64_t>();
    header.cost.memory = *reader.number<std::uint64_t>();
    std::ranges::copy(*reader.bytes(header.salt.size()), header.salt.begin());
    if (!header.isSound()) throw KeychainFailure{errSecInvalidKeychain};
    return header;
  }
};

KeychainKey::KeychainKey(FileCalls& calls, std::string keyFile, const Text& passphrase,
                         PassphraseCost cost, std::chrono::milliseconds lockDeadline)
    : calls_(calls),
      keyFile_(std::move(keyFile)),
      passphrase_(copiedPassphrase(passphrase)),
      cost_(cost),
      lockDeadline_(lockDeadline) {}

std::shared_ptr<const ItemSealer> KeychainKey::open(const PrivateDirectory& store) {
  const std::string name(kHeaderName);
  std::optional<Data> header = store.read(name, Header::kFileSize + 1);
  if (!header && holdsItems(store)) {
    // The header comes before the first item, so it is there now, unless the store is damaged.
    header = store.read(name, Header::kFileSize + 1);
    if (!header) throw KeychainFailure{errSecInvalidKeychain};
  }
  if (!header) return nullptr;
  MutexLock hold(mutex_);
  if (!sealer_ || *header != header_) {
    sealer_ = sealerFor(*header);
    header_ = std::move(*header);
  }
  return sealer_;
}

std::shared_ptr<const ItemSealer> KeychainKey::openOrMake(const PrivateDirectory& store,
                                                          const DirectoryLock& lock) {
  if (std::shared_ptr<const ItemSealer> sealer = open(store)) return sealer;
  makeStore(store, lock);
  return open(store);
}

void KeychainKey::makeStore(const PrivateDirectory& store, const DirectoryLock& lock) {
  if (!passphrase_) makeKeyFile(store, lock);
  const Header header = newHeader();
  store.replace(lock, std::string(kHeaderName), header.file(masterKey(header)));
}

std::shared_ptr<const ItemSealer> KeychainKey::sealerFor(Bytes headerFile) const {
  const Header header = Header::read(headerFile);
  const SecretBytes key = masterKey(header);
  const Bytes check = headerFile.subspan(Header::kFieldsSize, kHashSize);
  if (!areEqual(header.check(key), check)) throw KeychainFailure{errSecAuthFailed};
  return std::make_shared<const ItemSealer>(key);
}

KeychainKey::Header KeychainKey::newHeader() const {
  Header header;
  if (!passphrase_) return header;
  header.kind = kPassphraseKey;
  header.cost = cost_;
  randombytes_buf(header.salt.data(), header.salt.size());
  return header;
}

SecretBytes KeychainKey::masterKey(const Header& header) const {
  const bool wantsPassphrase = header.kind == kPassphraseKey;
  if (wantsPassphrase != passphrase_.has_value()) throw KeychainFailure{errSecAuthFailed};
  if (wantsPassphrase) return derivedKey(header);
  const auto directory = PrivateDirectory::open(calls_, parentOfPath(keyFile_));
  std::optional<SecretBytes> key = directory ? keyFromFile(*directory) : std::nullopt;
  if (!key) throw KeychainFailure{errSecAuthFailed};
  return std::move(*key);
}

SecretBytes KeychainKey::derivedKey(const Header& header) const {
  SecretBytes key(kMasterKeySize);
  const int derived =
      crypto_pwhash(key.data(), key.size(), reinterpret_cast<const char*>(passphrase_->data()),
                    passphrase_->size(), header.salt.data(), header.cost.operations,
                    static_cast<std::size_t>(header.cost.memory), crypto_pwhash_ALG_ARGON2ID13);
  if (derived != 0) throw std::bad_alloc();  // the one thing that can be short
  return key;
}

std::optional<SecretBytes> KeychainKey::keyFromFile(const PrivateDirectory& directory) const {
  const auto file = directory.openSecret(lastComponentOfPath(keyFile_), kMasterKeySize);
  if (!file) return std::nullopt;
  SecretBytes key(kMasterKeySize);
  if (directory.fill(*file, key.bytes()) != key.size()) {
    throw KeychainFailure{errSecInvalidKeychain};
  }
  return key;
}

// Stores may share a key file, so the folder it lies in is locked too; the store's own lock, where
// that is the same folder, is held already.
void KeychainKey::makeKeyFile(const PrivateDirectory& store, const DirectoryLock& lock) const {
  const auto directory = PrivateDirectory::openOrMake(calls_, parentOfPath(keyFile_));
  std::optional<DirectoryLock> own;
  if (!directory.isSameAs(store)) own.emplace(directory.lock(lockDeadline_));
  if (keyFromFile(directory)) return;
  SecretBytes key(kMasterKeySize);
  randombytes_buf(key.data(), key.size());
  directory.replace(own ? *own : lock, lastComponentOfPath(keyFile_), {key.data(), key.size()});
}

}  // namespace qvr
