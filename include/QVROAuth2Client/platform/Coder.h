// What an object writes itself to and reads itself from: keyed entries with checked classes.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <variant>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Text.h"

namespace qvr {
inline namespace v1 {

using TextSet = std::set<std::string, std::less<>>;

// An entry: the null value, a string, a number (an integer or a double), a set of strings, a date.
using CodedValue = std::variant<std::monostate, std::string, std::int64_t, double, TextSet, Date>;

// The class that an entry must be of to be read. The null value and a missing key are always fine.
enum class CodedClass { kString, kNumber, kSetOfStrings, kDate };

class QVR_EXPORT Coder {
 public:
  virtual ~Coder();

  // encodeObject:forKey:
  // Writes an entry; the null value when `value` is std::monostate. Keys are written once each.
  virtual void encodeObject(CodedValue value, std::string_view key) = 0;

  // decodeObjectOfClass:forKey:
  // Reads an entry: std::monostate for the null value and for a missing key. An entry of another
  // class reads as std::monostate, and makes the whole unarchiving fail.
  virtual CodedValue decodeObject(CodedClass allowed, std::string_view key) = 0;
};

}  // namespace v1
}  // namespace qvr
