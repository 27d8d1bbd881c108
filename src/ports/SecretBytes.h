// Memory for keys: locked, so that it is never swapped out, between guard pages, and wiped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace qvr {

class SecretBytes {
 public:
  // Content that is not defined yet. Throws std::bad_alloc.
  explicit SecretBytes(std::size_t size);

  SecretBytes(SecretBytes&& other) noexcept
      : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  SecretBytes& operator=(SecretBytes&&) = delete;
  ~SecretBytes();

  std::uint8_t* data() noexcept { return bytes_; }
  const std::uint8_t* data() const noexcept { return bytes_; }
  std::size_t size() const noexcept { return size_; }
  std::span<std::uint8_t> bytes() noexcept { return {bytes_, size_}; }

 private:
  std::uint8_t* bytes_;
  std::size_t size_;
};

}  // namespace qvr
