#include "src/ports/SecretBytes.h"

#include <sodium.h>

#include <new>

#include "src/ports/Sodium.h"

namespace qvr {

SecretBytes::SecretBytes(std::size_t size) : bytes_(nullptr), size_(size) {
  initializeSodium();
  bytes_ = static_cast<std::uint8_t*>(sodium_malloc(size));
  if (bytes_ == nullptr) throw std::bad_alloc();
}

SecretBytes::~SecretBytes() {
  sodium_free(bytes_);
}

}  // namespace qvr
