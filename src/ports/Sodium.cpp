#include "src/ports/Sodium.h"

#include <sodium.h>

#include <exception>

#include "src/platform/Crypto.h"

namespace qvr {

void initializeSodium() {
  // It fails only when the system has no random generator, and then nothing may go on.
  static const bool ready = sodium_init() >= 0;
  if (!ready) std::terminate();
}

std::array<std::uint8_t, 32> SHA256(std::span<const std::uint8_t> bytes) {
  static_assert(crypto_hash_sha256_BYTES == 32);
  std::array<std::uint8_t, 32> digest;
  crypto_hash_sha256(digest.data(), bytes.data(), bytes.size());
  return digest;
}

std::string base64Encoded(std::span<const std::uint8_t> bytes) {
  constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
  std::string text(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(), kVariant);
  text.pop_back();  // the terminating NUL
  return text;
}

void wipe(void* memory, std::size_t size) {
  sodium_memzero(memory, size);
}

}  // namespace qvr
