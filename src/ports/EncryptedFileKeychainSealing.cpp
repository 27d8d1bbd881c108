#include "src/ports/EncryptedFileKeychainSealing.h"

#include <sodium.h>

#include <algorithm>
#include <array>

#include "src/ports/FileCalls.h"

namespace qvr {

namespace {

constexpr std::string_view kMagic = "QVRKCI01";
constexpr std::string_view kExtension = ".item";
constexpr std::size_t kFileNameHashSize = 32;
constexpr std::size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kBoxOverhead = kNonceSize + kTagSize;
static_assert(kMasterKeySize == crypto_kdf_KEYBYTES);
static_assert(kMasterKeySize == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);

// The uses of the master key. The numbers are part of the format.
enum class KeyUse : std::uint64_t { kSealing = 1, kNaming = 2 };

SecretBytes derivedKey(const SecretBytes& masterKey, KeyUse use) {
  SecretBytes key(kMasterKeySize);
  crypto_kdf_derive_from_key(key.data(), key.size(), static_cast<std::uint64_t>(use), "qvrkeych",
                             masterKey.data());
  return key;
}

Data encodedName(const KeychainItemName& name) {
  Data encoded;
  appendNumber(encoded, static_cast<std::uint32_t>(name.service.size()));
  appendBytes(encoded, bytesOf(name.service));
  appendBytes(encoded, bytesOf(name.account));
  return encoded;
}

std::optional<KeychainItemName> decodedName(Bytes encoded) {
  FieldReader reader(encoded);
  const auto serviceSize = reader.number<std::uint32_t>();
  const auto service = serviceSize ? reader.bytes(*serviceSize) : std::nullopt;
  if (!service) return std::nullopt;
  const Bytes account = reader.rest();
  return KeychainItemName{{service->begin(), service->end()}, {account.begin(), account.end()}};
}

// Appends a box with the plaintext.
void appendBox(Data& file, const SecretBytes& key, Bytes plaintext, Bytes bound) {
  std::array<std::uint8_t, kNonceSize> nonce;
  randombytes_buf(nonce.data(), nonce.size());
  Data ciphertext(plaintext.size() + kTagSize);
  crypto_aead_xchacha20poly1305_ietf_encrypt(ciphertext.data(), nullptr, plaintext.data(),
                                             plaintext.size(), bound.data(), bound.size(), nullptr,
                                             nonce.data(), key.data());
  appendBytes(file, nonce);
  appendBytes(file, ciphertext);
}

std::optional<Data> openedBox(const SecretBytes& key, Bytes box, Bytes bound) {
  if (box.size() < kBoxOverhead) return std::nullopt;
  const Bytes ciphertext = box.subspan(kNonceSize);
  Data plaintext(ciphertext.size() - kTagSize);
  const int opened = crypto_aead_xchacha20poly1305_ietf_decrypt(
      plaintext.data(), nullptr, nullptr, ciphertext.data(), ciphertext.size(), bound.data(),
      bound.size(), box.data(), key.data());
  if (opened != 0) return std::nullopt;
  return plaintext;
}

// The parts of an item file.
struct ItemFile {
  Bytes beforeNameBox;
  Bytes nameBox;
  Bytes beforeDataBox;
  Bytes dataBox;
};

std::optional<ItemFile> partsOfFile(Bytes file) {
  if (file.size() > kMaximumItemFileSize) return std::nullopt;
  FieldReader reader(file);
  const auto magic = reader.bytes(kMagic.size());
  if (!magic || !std::ranges::equal(*magic, bytesOf(kMagic))) return std::nullopt;
  const auto nameBoxSize = reader.number<std::uint32_t>();
  const auto nameBox = nameBoxSize ? reader.bytes(*nameBoxSize) : std::nullopt;
  if (!nameBox) return std::nullopt;
  const std::size_t dataStart = file.size() - reader.rest().size();
  return ItemFile{file.first(dataStart - nameBox->size()), *nameBox, file.first(dataStart),
                  reader.rest()};
}

// What the data box of an item is bound to.
Data boundToData(Bytes beforeDataBox, Bytes name) {
  Data bound(beforeDataBox.begin(), beforeDataBox.end());
  appendBytes(bound, name);
  return bound;
}

}  // namespace

bool isItemFileName(std::string_view name) {
  return name.size() == 2 * kFileNameHashSize + kExtension.size() && name.ends_with(kExtension);
}

ItemSealer::ItemSealer(const SecretBytes& masterKey)
    : sealingKey_(derivedKey(masterKey, KeyUse::kSealing)),
      namingKey_(derivedKey(masterKey, KeyUse::kNaming)) {}

std::string ItemSealer::fileName(const KeychainItemName& name) const {
  const Data encoded = encodedName(name);
  std::array<std::uint8_t, kFileNameHashSize> hash;
  crypto_generichash(hash.data(), hash.size(), encoded.data(), encoded.size(), namingKey_.data(),
                     namingKey_.size());
  std::string text(2 * hash.size() + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), hash.data(), hash.size());
  text.pop_back();  // the terminating NUL
  return text.append(kExtension);
}

Data ItemSealer::seal(const KeychainItemName& name, Bytes data) const {
  const std::size_t nameBoxSize =
      sizeof(std::uint32_t) + name.service.size() + name.account.size() + kBoxOverhead;
  const std::size_t beforeData = kMagic.size() + sizeof(std::uint32_t) + nameBoxSize;
  if (beforeData + kBoxOverhead + data.size() > kMaximumItemFileSize) {
    throw KeychainFailure{errSecParam};
  }
  const Data encoded = encodedName(name);
  Data file;
  appendBytes(file, bytesOf(kMagic));
  appendNumber(file, static_cast<std::uint32_t>(nameBoxSize));
  appendBox(file, sealingKey_, encoded, Data(file));
  appendBox(file, sealingKey_, data, boundToData(file, encoded));
  return file;
}

Data ItemSealer::unseal(const KeychainItemName& name, Bytes file) const {
  const std::optional<ItemFile> parts = partsOfFile(file);
  if (!parts) throw KeychainFailure{errSecDecode};
  const Data bound = boundToData(parts->beforeDataBox, encodedName(name));
  std::optional<Data> data = openedBox(sealingKey_, parts->dataBox, bound);
  if (!data) throw KeychainFailure{errSecDecode};
  return std::move(*data);
}

std::optional<KeychainItemName> ItemSealer::unsealName(Bytes file) const {
  const std::optional<ItemFile> parts = partsOfFile(file);
  if (!parts) return std::nullopt;
  const std::optional<Data> encoded = openedBox(sealingKey_, parts->nameBox, parts->beforeNameBox);
  return encoded ? decodedName(*encoded) : std::nullopt;
}

}  // namespace qvr
