// The container of keyed archives: what the reader and the writer of binary property lists share.
//
// A file is a magic, the objects, a table of their offsets and a trailer. An object is a marker
// byte (type in the high half; length, or a width, in the low half) and its payload; a length of 15
// or more follows the marker as an integer object. Containers hold references: indexes into the
// offset table. All numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qvr {

inline constexpr std::string_view kPropertyListMagic = "bplist00";

// The longest file that is read, and so the longest that is written.
inline constexpr std::size_t kMaximumPropertyListLength = std::size_t{1} << 20;

// The high half of a marker byte.
enum class PropertyListType : std::uint8_t {
  kSingleton = 0x0,  // no payload; the low half is one of the three below
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kASCIIString = 0x5,
  kUTF16String = 0x6,
  kUID = 0x8,
  kArray = 0xA,
  kSet = 0xC,
  kDictionary = 0xD,
};

inline constexpr std::uint8_t kNullSingleton = 0x0;
inline constexpr std::uint8_t kFalseSingleton = 0x8;
inline constexpr std::uint8_t kTrueSingleton = 0x9;

// The low half of a marker byte whose length follows.
inline constexpr std::uint8_t kLengthFollows = 0xF;

// Where the trailer's fields stand in it.
inline constexpr std::size_t kTrailerLength = 32;
inline constexpr std::size_t kTrailerOffsetWidth = 6;
inline constexpr std::size_t kTrailerReferenceWidth = 7;
inline constexpr std::size_t kTrailerObjectCount = 8;
inline constexpr std::size_t kTrailerTopObject = 16;
inline constexpr std::size_t kTrailerOffsetTable = 24;

// Whether a string can be of the type of that name.
bool isASCII(std::string_view text);

}  // namespace qvr
