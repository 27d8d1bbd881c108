// The Unicode encodings of a JSON body: found out, and brought to UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qvr {

// Borrows the data. A byte order mark tells the encoding, else the zero bytes among the first four
// do: a JSON text begins with two ASCII characters (RFC 4627 section 3).
class JSONText {
 public:
  explicit JSONText(std::span<const std::uint8_t> data);

  // The text without its mark; if it is not well-formed, what comes before the fault.
  std::string_view utf8() const { return unitSize_ == 1 ? borrowed_ : converted_; }
  bool isWellFormed() const { return isWellFormed_; }

  // Where in the data a character stands, by its offset in utf8().
  std::size_t byteOffset(std::size_t offset) const;

 private:
  void findEncoding(std::span<const std::uint8_t> data);
  char32_t unitAt(std::span<const std::uint8_t> data, std::size_t start) const;
  bool convertUTF16(std::span<const std::uint8_t> data);
  bool convertUTF32(std::span<const std::uint8_t> data);

  std::size_t markLength_ = 0;
  std::size_t unitSize_ = 1;
  bool isBigEndian_ = false;
  bool isWellFormed_ = false;
  std::string_view borrowed_;
  std::string converted_;
};

}  // namespace qvr
