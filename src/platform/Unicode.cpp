#include "src/platform/Unicode.h"

#include <cstdint>
#include <cstring>

namespace qvr {
namespace {

// One character out of UTF-8 text; a length of 0 means that there is no well-formed one.
struct Character {
  char32_t codePoint = 0;
  std::size_t length = 0;
};

std::uint8_t byteAt(std::string_view text, std::size_t index) {
  return static_cast<std::uint8_t>(text[index]);
}

// The number of bytes that a lead byte announces, or 0 for a byte that can lead none.
std::size_t announcedLength(std::uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;  // a continuation byte, or the lead of an overlong pair
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return lead < 0xF5 ? 4 : 0;
}

bool isScalarOfLength(char32_t codePoint, std::size_t length) {
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint >= kSmallest[length] && codePoint <= 0x10FFFF && !surrogate;
}

Character characterAt(std::string_view text, std::size_t start) {
  const std::uint8_t lead = byteAt(text, start);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = announcedLength(lead);
  if (length == 0 || length > text.size() - start) return {};
  char32_t codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const std::uint8_t next = byteAt(text, start + i);
    if ((next & 0xC0) != 0x80) return {};
    codePoint = (codePoint << 6) | (next & 0x3FU);
  }
  if (!isScalarOfLength(codePoint, length)) return {};
  return {codePoint, length};
}

// The number of ASCII bytes at the start, in whole words of eight: most texts are nothing else.
std::size_t asciiLength(std::string_view text) {
  std::size_t length = 0;
  std::uint64_t word = 0;
  for (; text.size() - length >= sizeof word; length += sizeof word) {
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & 0x8080808080808080U) != 0) break;
  }
  return length;
}

void appendUTF16(std::u16string& units, char32_t codePoint) {
  if (codePoint < 0x10000) {
    units.push_back(static_cast<char16_t>(codePoint));
    return;
  }
  const char32_t offset = codePoint - 0x10000;
  units.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
  units.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

bool isHighSurrogate(char16_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

bool isUTF8(std::string_view bytes) {
  return wellFormedLength(bytes) == bytes.size();
}

std::size_t wellFormedLength(std::string_view bytes) {
  std::size_t end = asciiLength(bytes);
  while (end < bytes.size()) {
    const std::size_t length = characterAt(bytes, end).length;
    if (length == 0) break;
    end += length;
  }
  return end;
}

std::size_t UTF16Length(std::string_view text) {
  std::size_t units = 0;
  for (std::size_t i = 0; i < text.size();) {
    const Character character = characterAt(text, i);
    units += character.length == 4 ? 2 : 1;
    i += character.length == 0 ? 1 : character.length;
  }
  return units;
}

void appendUTF8(std::string& text, char32_t codePoint) {
  if (codePoint < 0x80) {
    text.push_back(static_cast<char>(codePoint));
    return;
  }
  const std::size_t length = codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
  constexpr char32_t kLead[] = {0, 0, 0xC0, 0xE0, 0xF0};
  std::size_t shift = 6 * (length - 1);
  text.push_back(static_cast<char>(kLead[length] | (codePoint >> shift)));
  while (shift > 0) {
    shift -= 6;
    text.push_back(static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F)));
  }
}

bool UTF8FromUTF16(std::u16string_view units, std::string* text) {
  text->clear();
  for (std::size_t i = 0; i < units.size(); ++i) {
    char32_t codePoint = units[i];
    if (isLowSurrogate(units[i])) return false;
    if (isHighSurrogate(units[i])) {
      if (i + 1 == units.size() || !isLowSurrogate(units[i + 1])) return false;
      codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (units[i + 1] - 0xDC00U);
      ++i;
    }
    appendUTF8(*text, codePoint);
  }
  return true;
}

bool UTF16FromUTF8(std::string_view text, std::u16string* units) {
  units->clear();
  for (std::size_t i = 0; i < text.size();) {
    const Character character = characterAt(text, i);
    if (character.length == 0) return false;
    appendUTF16(*units, character.codePoint);
    i += character.length;
  }
  return true;
}

}  // namespace qvr
