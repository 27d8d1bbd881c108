#include "src/ports/Sodium.h"

#include <sodium.h>
#include <sys/random.h>

#include <cerrno>
#include <exception>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Ports.h"
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

namespace {

class SystemRandomSource final : public RandomSource {
 public:
  // Asks the kernel rather than libsodium, which ends the process where this reports a failure.
  std::int32_t copyBytes(std::span<std::uint8_t> bytes) override {
    while (!bytes.empty()) {
      const ssize_t count = getrandom(bytes.data(), bytes.size(), 0);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errSecIO;
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return errSecSuccess;
  }

  std::uint32_t uniform(std::uint32_t upperBound) override {
    initializeSodium();
    return randombytes_uniform(upperBound);
  }
};

}  // namespace

inline namespace v1 {

Ref<RandomSource> makeRandomSource() {
  return makeRef<SystemRandomSource>();
}

}  // namespace v1
}  // namespace qvr
