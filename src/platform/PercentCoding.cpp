#include "src/platform/PercentCoding.h"

#include <algorithm>
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
  static constexpr char kDigits[] = "0123456789ABCDEF";
  *output++ = '%';
  *output++ = kDigits[byte >> 4];
  *output++ = kDigits[byte & 0xF];
  return output;
}

// Answers whether it could; if not, the output is as it was.
bool appendEncoded(std::string& output, TextView text, const CharacterSet& kept) {
  if (!text || !isUTF8(text.view())) return false;
  const std::string_view view = text.view();
  const auto escapes = static_cast<std::size_t>(
      std::count_if(view.begin(), view.end(), [&kept](char c) { return !kept.contains(c); }));
  const std::size_t start = output.size();
  output.resize(start + view.size() + 2 * escapes);
  char* end = output.data() + start;
  for (const char c : view) {
    if (kept.contains(c)) {
      *end++ = c;
    } else {
      end = writeEscape(end, static_cast<std::uint8_t>(c));
    }
  }
  return true;
}

}  // namespace

Text percentEncoded(TextView text, const CharacterSet& kept) {
  std::string encoded;
  if (!appendEncoded(encoded, text, kept)) return std::nullopt;
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

std::string encodedPair(TextView key, TextView value, const CharacterSet& kept) {
  std::string pair;
  if (!appendEncoded(pair, key, kept)) pair += kNotEncoded;
  pair += '=';
  if (!appendEncoded(pair, value, kept)) pair += kNotEncoded;
  return pair;
}

}  // namespace qvr
