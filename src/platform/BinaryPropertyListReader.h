// Reads binary property lists from bytes that may be hostile.
//
// Everything is checked once, when a list is opened, in time linear in its length: the trailer,
// every offset, length and reference, and that every string is one. Objects may be referred to any
// number of times, but may not lie over one another, so that the references of a whole list are
// never more than its bytes warrant. Nothing is built, and nothing recurses: a list that contains
// itself is harmless, since only its user walks it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "src/platform/BinaryPropertyList.h"

namespace qvr {

// Borrows the bytes. Reading is thread-safe.
class BinaryPropertyListReader {
 public:
  using Index = std::uint32_t;  // names an object; less than objectCount()
  using Number = std::variant<std::int64_t, double>;

  // Nothing, with a sentence in *problem, when the bytes are no sound list or over the limit.
  static std::optional<BinaryPropertyListReader> open(std::span<const std::uint8_t> bytes,
                                                      std::string_view* problem);

  std::size_t objectCount() const { return objects_.size(); }
  Index topObject() const { return top_; }
  PropertyListType type(Index object) const { return objects_[object].type; }
  bool isString(Index object) const;
  bool isNumber(Index object) const;

  // What follows is for an object of the type that it names.

  // An integer, real or boolean (1 and 0). Integers beyond 64 bits become doubles.
  Number number(Index number) const;

  // Seconds since 2001-01-01 00:00:00 UTC.
  double date(Index date) const;

  std::uint64_t UID(Index uid) const;

  // The text as UTF-8, and whether it equals `text`.
  std::string string(Index string) const;
  bool stringEquals(Index string, std::string_view text) const;

  // The number of an array's elements, and one of them.
  std::size_t count(Index container) const { return objects_[container].length; }
  Index element(Index array, std::size_t position) const;

  // The value of a dictionary's first entry with this key.
  std::optional<Index> find(Index dictionary, std::string_view key) const;

 private:
  // `length` counts characters of strings, elements and entries of containers, bytes of everything
  // else; for a singleton it is the low half of the marker.
  struct Object {
    PropertyListType type = PropertyListType::kSingleton;
    std::uint32_t start = 0;
    std::uint32_t length = 0;
  };

  explicit BinaryPropertyListReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  // Each answers what is wrong; empty when nothing is.
  std::string_view readTrailer();
  std::string_view readObjects();
  std::string_view checkReferences() const;

  bool readObject(std::size_t offset, Object* object) const;
  bool readLength(std::uint8_t low, std::size_t* start, std::uint64_t* length) const;
  std::size_t unitWidth(PropertyListType type) const;
  bool isSoundString(const Object& object) const;
  bool isSoundContainer(const Object& object) const;

  std::uint64_t bigEndian(std::size_t start, std::size_t width) const;
  Index reference(const Object& container, std::size_t position) const;
  std::string_view characters(const Object& string) const;
  bool convertUTF16(const Object& string, std::string* text) const;
  Number integer(const Object& object) const;
  double real(const Object& object) const;

  std::span<const std::uint8_t> bytes_;
  std::size_t offsetWidth_ = 0;
  std::size_t referenceWidth_ = 0;
  std::size_t offsetTable_ = 0;
  Index top_ = 0;
  std::vector<Object> objects_;
};

}  // namespace qvr
