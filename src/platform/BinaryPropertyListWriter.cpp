#include "src/platform/BinaryPropertyListWriter.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <string>

#include "src/platform/Unicode.h"

namespace qvr {
namespace {

constexpr std::uint32_t kNotNumbered = std::numeric_limits<std::uint32_t>::max();

void appendBigEndian(Data& bytes, std::uint64_t value, std::size_t width) {
  for (std::size_t i = width; i-- > 0;)
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// Readers expect widths that are powers of two.
std::size_t widthOf(std::uint64_t value) {
  if (value <= std::numeric_limits<std::uint8_t>::max()) return 1;
  if (value <= std::numeric_limits<std::uint16_t>::max()) return 2;
  if (value <= std::numeric_limits<std::uint32_t>::max()) return 4;
  return 8;
}

std::uint8_t marker(PropertyListType type, std::size_t low) {
  return static_cast<std::uint8_t>(static_cast<std::size_t>(type) << 4 | low);
}

// Only the widest integers have a sign, so every negative number takes 8 bytes.
void appendInteger(Data& bytes, std::int64_t value) {
  const auto bits = static_cast<std::uint64_t>(value);
  const std::size_t width = widthOf(bits);
  const auto exponent = static_cast<std::size_t>(std::countr_zero(width));
  bytes.push_back(marker(PropertyListType::kInteger, exponent));
  appendBigEndian(bytes, bits, width);
}

void appendHeader(Data& bytes, PropertyListType type, std::size_t length) {
  bytes.push_back(marker(type, std::min<std::size_t>(length, kLengthFollows)));
  if (length >= kLengthFollows) appendInteger(bytes, static_cast<std::int64_t>(length));
}

// Appends what stands behind the objects: the offset table and the trailer. Object 0 is the top
// one.
void appendTables(Data& bytes, const std::vector<std::size_t>& offsets,
                  std::size_t referenceWidth) {
  const std::size_t table = bytes.size();
  const std::size_t offsetWidth = widthOf(table);
  for (const std::size_t offset : offsets)
    appendBigEndian(bytes, offset, offsetWidth);
  bytes.resize(bytes.size() + kTrailerOffsetWidth);  // unused, and no sort order
  bytes.push_back(static_cast<std::uint8_t>(offsetWidth));
  bytes.push_back(static_cast<std::uint8_t>(referenceWidth));
  appendBigEndian(bytes, offsets.size(), 8);
  appendBigEndian(bytes, 0, 8);
  appendBigEndian(bytes, table, 8);
}

bool isContainer(PropertyListType type) {
  return type == PropertyListType::kArray || type == PropertyListType::kDictionary;
}

}  // namespace

BinaryPropertyListWriter::Object BinaryPropertyListWriter::string(std::string_view text) {
  const std::size_t start = scalars_.size();
  if (!isASCII(text)) {
    appendUTF16(text);
    return addSharedScalar(PropertyListType::kUTF16String, start);
  }
  appendHeader(scalars_, PropertyListType::kASCIIString, text.size());
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  scalars_.insert(scalars_.end(), bytes, bytes + text.size());
  return addSharedScalar(PropertyListType::kASCIIString, start);
}

void BinaryPropertyListWriter::appendUTF16(std::string_view text) {
  std::u16string units;
  if (!UTF16FromUTF8(text, &units)) isUTF8_ = false;
  appendHeader(scalars_, PropertyListType::kUTF16String, units.size());
  for (const char16_t unit : units)
    appendBigEndian(scalars_, unit, sizeof unit);
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::integer(std::int64_t number) {
  const std::size_t start = scalars_.size();
  appendInteger(scalars_, number);
  return addSharedScalar(PropertyListType::kInteger, start);
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::real(double number) {
  const std::size_t start = scalars_.size();
  scalars_.push_back(marker(PropertyListType::kReal, std::countr_zero(sizeof number)));
  appendBigEndian(scalars_, std::bit_cast<std::uint64_t>(number), sizeof number);
  return addSharedScalar(PropertyListType::kReal, start);
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::UID(std::uint32_t uid) {
  const std::size_t start = scalars_.size();
  const std::size_t width = widthOf(uid);
  scalars_.push_back(marker(PropertyListType::kUID, width - 1));
  appendBigEndian(scalars_, uid, width);
  return addScalar(PropertyListType::kUID, start);
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::array(std::span<const Object> elements) {
  const std::size_t start = references_.size();
  references_.insert(references_.end(), elements.begin(), elements.end());
  return add(PropertyListType::kArray, start, elements.size());
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::dictionary(
    std::span<const Entry> entries) {
  const std::size_t start = references_.size();
  for (const Entry& entry : entries)
    references_.push_back(string(entry.key));
  for (const Entry& entry : entries)
    references_.push_back(entry.value);
  return add(PropertyListType::kDictionary, start, 2 * entries.size());
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::add(PropertyListType type,
                                                               std::size_t start,
                                                               std::size_t length) {
  nodes_.push_back({type, start, length});
  return static_cast<Object>(nodes_.size() - 1);
}

BinaryPropertyListWriter::Object BinaryPropertyListWriter::addScalar(PropertyListType type,
                                                                     std::size_t start) {
  return add(type, start, scalars_.size() - start);
}

// Takes the new object back when an equal one is there.
BinaryPropertyListWriter::Object BinaryPropertyListWriter::addSharedScalar(PropertyListType type,
                                                                           std::size_t start) {
  const auto [object, isNew] = shared_.insert(addScalar(type, start));
  if (!isNew) {
    nodes_.pop_back();
    scalars_.resize(start);
  }
  return *object;
}

std::string_view BinaryPropertyListWriter::encoded(Object scalar) const {
  const Node& node = nodes_[scalar];
  return {reinterpret_cast<const char*>(scalars_.data()) + node.start, node.length};
}

void BinaryPropertyListWriter::number(Object object, Numbering* numbering) const {
  if (numbering->numbers[object] != kNotNumbered) return;
  numbering->numbers[object] = static_cast<std::uint32_t>(numbering->order.size());
  numbering->order.push_back(object);
  const Node& node = nodes_[object];
  if (!isContainer(node.type)) return;
  for (std::size_t i = 0; i < node.length; ++i)
    number(references_[node.start + i], numbering);
}

// Enough for lists of up to 64 KiB; longer ones make the buffer grow.
std::size_t BinaryPropertyListWriter::sizeEstimate(std::size_t referenceWidth) const {
  constexpr std::size_t kContainerHeader = 4;
  constexpr std::size_t kOffset = 2;
  return kPropertyListMagic.size() + scalars_.size() + references_.size() * referenceWidth +
         nodes_.size() * (kContainerHeader + kOffset) + kTrailerLength;
}

void BinaryPropertyListWriter::appendObject(Data& bytes, const Node& node,
                                            const Numbering& numbering) const {
  if (!isContainer(node.type)) {
    const auto start = scalars_.begin() + static_cast<std::ptrdiff_t>(node.start);
    bytes.insert(bytes.end(), start, start + static_cast<std::ptrdiff_t>(node.length));
    return;
  }
  const bool isDictionary = node.type == PropertyListType::kDictionary;
  appendHeader(bytes, node.type, isDictionary ? node.length / 2 : node.length);
  const std::size_t width = widthOf(numbering.order.size());
  for (std::size_t i = 0; i < node.length; ++i) {
    appendBigEndian(bytes, numbering.numbers[references_[node.start + i]], width);
  }
}

std::optional<Data> BinaryPropertyListWriter::data(Object top) const {
  if (!isUTF8_) return std::nullopt;
  Numbering numbering{{}, std::vector<std::uint32_t>(nodes_.size(), kNotNumbered)};
  numbering.order.reserve(nodes_.size());
  number(top, &numbering);
  const std::size_t referenceWidth = widthOf(numbering.order.size());
  Data bytes;
  bytes.reserve(sizeEstimate(referenceWidth));
  bytes.insert(bytes.end(), kPropertyListMagic.begin(), kPropertyListMagic.end());
  std::vector<std::size_t> offsets;
  offsets.reserve(numbering.order.size());
  for (const Object object : numbering.order) {
    offsets.push_back(bytes.size());
    appendObject(bytes, nodes_[object], numbering);
  }
  appendTables(bytes, offsets, referenceWidth);
  return bytes;
}

}  // namespace qvr
