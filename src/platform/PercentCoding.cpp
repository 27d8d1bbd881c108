#include "src/platform/PercentCoding.h"

#include <array>
#include <cstdint>

#include "src/platform/Unicode.h"

namespace qvr {
namespace {

// The value of a hex digit, or -1.
int hexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

// The byte of the escape that starts at `start`, or -1 when it is broken.
int escapedByte(std::string_view text, std::size_t start) {
  if (text.size() - start < 3) return -1;
  const int high = hexValue(text[start + 1]);
  const int low = hexValue(text[start + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// Writes the escape of a byte and answers where it ends.
char* writeEscape(char* output, std::uint8_t byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  *output++ = '%';
  *output++ = kDigits[byte >> 4];
  *output++ = kDigits[byte & 0xF];
  return output;
}

}  // namespace

Text percentEncoded(TextView text, std::string_view kept) {
  if (!text || !isUTF8(text.view())) return std::nullopt;
  std::array<bool, 256> isKept{};
  for (const char c : kept)
    isKept[static_cast<std::uint8_t>(c)] = true;
  std::string encoded(3 * text.view().size(), '\0');
  char* output = encoded.data();
  for (const char c : text.view()) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (isKept[byte]) {
      *output++ = c;
    } else {
      output = writeEscape(output, byte);
    }
  }
  encoded.resize(static_cast<std::size_t>(output - encoded.data()));
  return encoded;
}

Text percentDecoded(TextView text) {
  if (!text) return std::nullopt;
  const std::string_view encoded = text.view();
  std::string decoded;
  decoded.reserve(encoded.size());
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] != '%') {
      decoded.push_back(encoded[i]);
      continue;
    }
    const int byte = escapedByte(encoded, i);
    if (byte < 0) return std::nullopt;
    decoded.push_back(static_cast<char>(byte));
    i += 2;
  }
  if (!isUTF8(decoded)) return std::nullopt;
  return decoded;
}

std::string encodedPair(const Text& key, const Text& value) {
  constexpr std::string_view kAbsent = "(null)";
  std::string pair(key ? std::string_view(*key) : kAbsent);
  pair += '=';
  pair += value ? std::string_view(*value) : kAbsent;
  return pair;
}

}  // namespace qvr
