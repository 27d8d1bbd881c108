// The two readers behind JSONObjectWithData. They agree on whatever both accept.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "QVROAuth2Client/platform/Value.h"

namespace qvr {

// The deepest nesting of arrays and objects that is read.
inline constexpr std::size_t kJSONDepthLimit = 512;

// Why a body cannot be read. The reason is one of a few fixed phrases: a body may hold secrets, so
// none of it is repeated.
struct JSONFailure {
  std::string_view reason;
  std::size_t byteOffset = 0;
};

// Of the outermost object's members, those to build; all of them when there is no list. The others
// are read and checked all the same.
using JSONNames = std::optional<std::span<const std::string_view>>;

inline bool isWanted(const JSONNames& names, std::string_view name) {
  return !names || std::find(names->begin(), names->end(), name) != names->end();
}

// The fast one, for plain bodies: strict UTF-8 without a mark, no trailing comma, numbers that fit.
// It refuses others and does not say why.
std::optional<Value> readPlainJSON(std::span<const std::uint8_t> data, const JSONNames& names = {});

// The lenient one, for every body that is read at all; *failure is written only on failure. It does
// not recurse.
std::optional<Value> readLenientJSON(std::span<const std::uint8_t> data, JSONFailure* failure,
                                     const JSONNames& names = {});

// Drops every member whose key an earlier member has. Both readers call it on each object.
void keepFirstOfEqualKeys(Value::Object& object);

}  // namespace qvr
