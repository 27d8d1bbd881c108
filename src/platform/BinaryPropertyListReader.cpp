#include "src/platform/BinaryPropertyListReader.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "src/platform/Unicode.h"

namespace qvr {
namespace {

constexpr std::size_t kWidestField = 8;

bool isContainer(PropertyListType type) {
  return type == PropertyListType::kArray || type == PropertyListType::kSet ||
         type == PropertyListType::kDictionary;
}

// The length of an object whose marker's low half gives a width; 0 for one that is not defined.
std::size_t fixedLength(PropertyListType type, std::uint8_t low) {
  switch (type) {
    case PropertyListType::kInteger:
      return low <= 4 ? std::size_t{1} << low : 0;
    case PropertyListType::kReal:
      return low == 2 || low == 3 ? std::size_t{1} << low : 0;
    case PropertyListType::kDate:
      return low == 3 ? sizeof(double) : 0;
    default:  // a UID
      return low < kWidestField ? low + std::size_t{1} : 0;
  }
}

}  // namespace

std::optional<BinaryPropertyListReader> BinaryPropertyListReader::open(
    std::span<const std::uint8_t> bytes, std::string_view* problem) {
  BinaryPropertyListReader reader(bytes);
  *problem = reader.readTrailer();
  if (problem->empty()) *problem = reader.readObjects();
  if (problem->empty()) *problem = reader.checkReferences();
  if (!problem->empty()) return std::nullopt;
  return reader;
}

std::string_view BinaryPropertyListReader::readTrailer() {
  if (bytes_.size() > kMaximumPropertyListLength) return "The data is longer than 1 MiB.";
  if (bytes_.size() < kPropertyListMagic.size() + kTrailerLength ||
      !std::equal(kPropertyListMagic.begin(), kPropertyListMagic.end(), bytes_.begin())) {
    return "The data is not a binary property list.";
  }
  const std::size_t trailer = bytes_.size() - kTrailerLength;
  offsetWidth_ = bytes_[trailer + kTrailerOffsetWidth];
  referenceWidth_ = bytes_[trailer + kTrailerReferenceWidth];
  const std::uint64_t count = bigEndian(trailer + kTrailerObjectCount, 8);
  const std::uint64_t top = bigEndian(trailer + kTrailerTopObject, 8);
  const std::uint64_t table = bigEndian(trailer + kTrailerOffsetTable, 8);
  if (offsetWidth_ == 0 || offsetWidth_ > kWidestField || referenceWidth_ == 0 ||
      referenceWidth_ > kWidestField) {
    return "The property list's trailer has a width out of range.";
  }
  if (table < kPropertyListMagic.size() || table > trailer ||
      count > (trailer - table) / offsetWidth_ || top >= count) {
    return "The property list's trailer has a count or an offset out of range.";
  }
  offsetTable_ = static_cast<std::size_t>(table);
  top_ = static_cast<Index>(top);
  objects_.resize(static_cast<std::size_t>(count));
  return {};
}

std::string_view BinaryPropertyListReader::readObjects() {
  // What the objects may still take up: they do not lie over one another.
  std::size_t room = offsetTable_ - kPropertyListMagic.size();
  std::size_t entry = offsetTable_;
  for (Object& object : objects_) {
    const std::uint64_t offset = bigEndian(entry, offsetWidth_);
    entry += offsetWidth_;
    if (offset < kPropertyListMagic.size() || offset >= offsetTable_ ||
        !readObject(static_cast<std::size_t>(offset), &object)) {
      return "The property list has an object that is malformed or out of range.";
    }
    const std::size_t end = object.start + object.length * unitWidth(object.type);
    const std::size_t extent = end - static_cast<std::size_t>(offset);
    if (extent > room) return "The property list has objects that overlap.";
    room -= extent;
    if (!isSoundString(object)) return "The property list has a malformed string.";
  }
  return {};
}

std::string_view BinaryPropertyListReader::checkReferences() const {
  const bool sound = std::all_of(objects_.begin(), objects_.end(),
                                 [this](const Object& object) { return isSoundContainer(object); });
  return sound ? "" : "The property list has a reference out of range or a key that is no string.";
}

bool BinaryPropertyListReader::readObject(std::size_t offset, Object* object) const {
  const auto type = static_cast<PropertyListType>(bytes_[offset] >> 4);
  const std::uint8_t low = bytes_[offset] & 0xF;
  std::size_t start = offset + 1;
  std::uint64_t length = 0;
  switch (type) {
    case PropertyListType::kSingleton:
      if (low != kNullSingleton && low != kFalseSingleton && low != kTrueSingleton) return false;
      length = low;
      break;
    case PropertyListType::kInteger:
    case PropertyListType::kReal:
    case PropertyListType::kDate:
    case PropertyListType::kUID:
      length = fixedLength(type, low);
      if (length == 0) return false;
      break;
    case PropertyListType::kData:
    case PropertyListType::kASCIIString:
    case PropertyListType::kUTF16String:
    case PropertyListType::kArray:
    case PropertyListType::kSet:
    case PropertyListType::kDictionary:
      if (!readLength(low, &start, &length)) return false;
      break;
    default:
      return false;
  }
  const std::size_t width = unitWidth(type);
  if (width != 0 && length > (offsetTable_ - start) / width) return false;
  *object = {type, static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(length)};
  return true;
}

// Reads the length that the low half of a marker gives, or that follows the marker as an integer;
// moves *start behind it. (A length of 16 bytes is refused: nothing is that long.)
bool BinaryPropertyListReader::readLength(std::uint8_t low, std::size_t* start,
                                          std::uint64_t* length) const {
  *length = low;
  if (low != kLengthFollows) return true;
  if (*start >= offsetTable_) return false;
  const std::uint8_t marker = bytes_[*start];
  const std::size_t width = fixedLength(PropertyListType::kInteger, marker & 0xF);
  if (static_cast<PropertyListType>(marker >> 4) != PropertyListType::kInteger || width == 0 ||
      width > kWidestField || width > offsetTable_ - *start - 1) {
    return false;
  }
  *length = bigEndian(*start + 1, width);
  *start += 1 + width;
  return true;
}

// How many bytes of payload stand behind each unit of an object's length.
std::size_t BinaryPropertyListReader::unitWidth(PropertyListType type) const {
  switch (type) {
    case PropertyListType::kSingleton:
      return 0;
    case PropertyListType::kUTF16String:
      return 2;
    case PropertyListType::kArray:
    case PropertyListType::kSet:
      return referenceWidth_;
    case PropertyListType::kDictionary:
      return 2 * referenceWidth_;
    default:
      return 1;
  }
}

bool BinaryPropertyListReader::isSoundString(const Object& object) const {
  if (object.type == PropertyListType::kASCIIString) return isASCII(characters(object));
  std::string unused;
  return object.type != PropertyListType::kUTF16String || convertUTF16(object, &unused);
}

bool BinaryPropertyListReader::isSoundContainer(const Object& object) const {
  if (!isContainer(object.type)) return true;
  const bool isDictionary = object.type == PropertyListType::kDictionary;
  const std::size_t keys = isDictionary ? object.length : 0;
  const std::size_t references = object.length + keys;
  for (std::size_t i = 0; i < references; ++i) {
    const std::uint64_t target = bigEndian(object.start + i * referenceWidth_, referenceWidth_);
    if (target >= objects_.size()) return false;
    if (i < keys && !isString(static_cast<Index>(target))) return false;
  }
  return true;
}

std::uint64_t BinaryPropertyListReader::bigEndian(std::size_t start, std::size_t width) const {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i)
    value = value << 8 | bytes_[start + i];
  return value;
}

BinaryPropertyListReader::Index BinaryPropertyListReader::reference(const Object& container,
                                                                    std::size_t position) const {
  return static_cast<Index>(
      bigEndian(container.start + position * referenceWidth_, referenceWidth_));
}

std::string_view BinaryPropertyListReader::characters(const Object& string) const {
  return {reinterpret_cast<const char*>(bytes_.data()) + string.start, string.length};
}

bool BinaryPropertyListReader::convertUTF16(const Object& string, std::string* text) const {
  std::u16string units(string.length, u'\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    units[i] = static_cast<char16_t>(bigEndian(string.start + 2 * i, 2));
  }
  return UTF8FromUTF16(units, text);
}

bool BinaryPropertyListReader::isString(Index object) const {
  return type(object) == PropertyListType::kASCIIString ||
         type(object) == PropertyListType::kUTF16String;
}

bool BinaryPropertyListReader::isNumber(Index object) const {
  return type(object) == PropertyListType::kInteger || type(object) == PropertyListType::kReal ||
         (type(object) == PropertyListType::kSingleton &&
          objects_[object].length != kNullSingleton);
}

BinaryPropertyListReader::Number BinaryPropertyListReader::number(Index number) const {
  const Object& object = objects_[number];
  if (object.type == PropertyListType::kReal) return real(object);
  if (object.type == PropertyListType::kInteger) return integer(object);
  return std::int64_t{object.length == kTrueSingleton};
}

// Integers of 1, 2 and 4 bytes have no sign; those of 8 and 16 bytes are two's complement.
BinaryPropertyListReader::Number BinaryPropertyListReader::integer(const Object& object) const {
  if (object.length <= 8) return static_cast<std::int64_t>(bigEndian(object.start, object.length));
  const auto high = static_cast<std::int64_t>(bigEndian(object.start, 8));
  const std::uint64_t low = bigEndian(object.start + 8, 8);
  const auto narrow = static_cast<std::int64_t>(low);
  if (high == (narrow < 0 ? -1 : 0)) return narrow;
  return static_cast<double>(high) * 0x1p64 + static_cast<double>(low);
}

double BinaryPropertyListReader::real(const Object& object) const {
  const std::uint64_t bits = bigEndian(object.start, object.length);
  if (object.length == sizeof(float)) {
    return double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))};
  }
  return std::bit_cast<double>(bits);
}

double BinaryPropertyListReader::date(Index date) const {
  return real(objects_[date]);
}

std::uint64_t BinaryPropertyListReader::UID(Index uid) const {
  return bigEndian(objects_[uid].start, objects_[uid].length);
}

std::string BinaryPropertyListReader::string(Index string) const {
  const Object& object = objects_[string];
  if (object.type == PropertyListType::kASCIIString) return std::string(characters(object));
  std::string text;
  convertUTF16(object, &text);
  return text;
}

// Text has at least one byte for every UTF-16 unit, so long strings are never converted in vain.
bool BinaryPropertyListReader::stringEquals(Index string, std::string_view text) const {
  const Object& object = objects_[string];
  if (object.type == PropertyListType::kASCIIString) return characters(object) == text;
  return object.length <= text.size() && this->string(string) == text;
}

BinaryPropertyListReader::Index BinaryPropertyListReader::element(Index array,
                                                                  std::size_t position) const {
  return reference(objects_[array], position);
}

std::optional<BinaryPropertyListReader::Index> BinaryPropertyListReader::find(
    Index dictionary, std::string_view key) const {
  const Object& object = objects_[dictionary];
  for (std::size_t i = 0; i < object.length; ++i) {
    if (stringEquals(reference(object, i), key)) return reference(object, object.length + i);
  }
  return std::nullopt;
}

}  // namespace qvr
