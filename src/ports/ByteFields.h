// Fixed-width fields of the file keychain's formats, little-endian.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace qvr {

using Bytes = std::span<const std::uint8_t>;

inline Bytes bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline void appendBytes(std::vector<std::uint8_t>& output, Bytes bytes) {
  output.insert(output.end(), bytes.begin(), bytes.end());
}

template <std::unsigned_integral Number>
void appendNumber(std::vector<std::uint8_t>& output, Number number) {
  for (std::size_t index = 0; index < sizeof(Number); ++index) {
    output.push_back(static_cast<std::uint8_t>(number >> (8 * index)));
  }
}

// Takes fields off the front of a buffer; each is absent when what is left is too short for it.
class FieldReader {
 public:
  explicit FieldReader(Bytes bytes) : rest_(bytes) {}

  std::optional<Bytes> bytes(std::size_t count) {
    if (rest_.size() < count) return std::nullopt;
    const Bytes field = rest_.first(count);
    rest_ = rest_.subspan(count);
    return field;
  }

  template <std::unsigned_integral Number>
  std::optional<Number> number() {
    const std::optional<Bytes> field = bytes(sizeof(Number));
    if (!field) return std::nullopt;
    Number value = 0;
    for (std::size_t index = sizeof(Number); index > 0; --index) {
      value = static_cast<Number>(value << 8 | (*field)[index - 1]);
    }
    return value;
  }

  Bytes rest() const { return rest_; }

 private:
  Bytes rest_;
};

}  // namespace qvr
