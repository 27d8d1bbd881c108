#include "src/platform/JSONText.h"

#include <algorithm>
#include <iterator>

#include "src/platform/Unicode.h"

namespace qvr {
namespace {

using namespace std::string_view_literals;

struct Mark {
  std::string_view bytes;
  std::size_t unitSize;
  bool isBigEndian;
};

// A mark of UTF-32 begins with one of UTF-16, so the longer ones come first.
constexpr Mark kMarks[] = {
    {"\0\0\xFE\xFF"sv, 4, true}, {"\xFF\xFE\0\0"sv, 4, false}, {"\xFE\xFF"sv, 2, true},
    {"\xFF\xFE"sv, 2, false},    {"\xEF\xBB\xBF"sv, 1, false},
};

// Which of the first four bytes are zero when these hold ASCII characters.
struct ZeroPattern {
  bool isZero[4];
  std::size_t unitSize;
  bool isBigEndian;
};

constexpr ZeroPattern kZeroPatterns[] = {
    {{true, true, true, false}, 4, true},
    {{false, true, true, true}, 4, false},
    {{true, false, true, false}, 2, true},
    {{false, true, false, true}, 2, false},
};

std::string_view asText(std::span<const std::uint8_t> data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace

JSONText::JSONText(std::span<const std::uint8_t> data) {
  findEncoding(data);
  data = data.subspan(markLength_);
  if (unitSize_ == 1) {
    borrowed_ = asText(data).substr(0, wellFormedLength(asText(data)));
    isWellFormed_ = borrowed_.size() == data.size();
  } else {
    isWellFormed_ = unitSize_ == 2 ? convertUTF16(data) : convertUTF32(data);
  }
}

std::size_t JSONText::byteOffset(std::size_t offset) const {
  const std::string_view before = utf8().substr(0, offset);
  std::size_t units = before.size();
  if (unitSize_ == 2) units = UTF16Length(before);
  if (unitSize_ == 4) {
    units = static_cast<std::size_t>(
        std::count_if(before.begin(), before.end(), [](char c) { return (c & 0xC0) != 0x80; }));
  }
  return markLength_ + units * unitSize_;
}

void JSONText::findEncoding(std::span<const std::uint8_t> data) {
  for (const Mark& mark : kMarks) {
    if (!asText(data).starts_with(mark.bytes)) continue;
    markLength_ = mark.bytes.size();
    unitSize_ = mark.unitSize;
    isBigEndian_ = mark.isBigEndian;
    return;
  }
  if (data.size() < 4) return;
  const bool isZero[] = {data[0] == 0, data[1] == 0, data[2] == 0, data[3] == 0};
  for (const ZeroPattern& pattern : kZeroPatterns) {
    if (!std::equal(std::begin(isZero), std::end(isZero), std::begin(pattern.isZero))) continue;
    unitSize_ = pattern.unitSize;
    isBigEndian_ = pattern.isBigEndian;
    return;
  }
}

char32_t JSONText::unitAt(std::span<const std::uint8_t> data, std::size_t start) const {
  char32_t unit = 0;
  for (std::size_t i = 0; i < unitSize_; ++i) {
    unit = (unit << 8) | data[start + (isBigEndian_ ? i : unitSize_ - 1 - i)];
  }
  return unit;
}

bool JSONText::convertUTF16(std::span<const std::uint8_t> data) {
  std::u16string units;
  units.reserve(data.size() / 2);
  for (std::size_t i = 0; i + 2 <= data.size(); i += 2) {
    units.push_back(static_cast<char16_t>(unitAt(data, i)));
  }
  return UTF8FromUTF16(units, &converted_) && data.size() % 2 == 0;
}

bool JSONText::convertUTF32(std::span<const std::uint8_t> data) {
  for (std::size_t i = 0; i + 4 <= data.size(); i += 4) {
    const char32_t codePoint = unitAt(data, i);
    const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint > 0x10FFFF || isSurrogate) return false;
    appendUTF8(converted_, codePoint);
  }
  return data.size() % 4 == 0;
}

}  // namespace qvr
