// A JSON-like value: what a server sent, as it sent it, and what an error's userInfo holds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URL.h"

namespace qvr {
inline namespace v1 {

// Null, boolean, number (an integer or a double, as written), string, array, object, byte buffer or
// URL. A value type: copies are independent.
class QVR_EXPORT Value {
 public:
  using Array = std::vector<Value>;
  using Member = std::pair<std::string, Value>;
  using Object = std::vector<Member>;  // in the order in which the members were written

  Value() = default;                                               // null
  Value(std::nullptr_t) {}                                         // NOLINT
  Value(bool value) : storage_(value) {}                           // NOLINT
  Value(int value) : storage_(std::int64_t{value}) {}              // NOLINT
  Value(std::int64_t value) : storage_(value) {}                   // NOLINT
  Value(std::uint64_t value) : storage_(value) {}                  // NOLINT
  Value(double value) : storage_(value) {}                         // NOLINT
  Value(const char* value) : storage_(std::string(value)) {}       // NOLINT
  Value(std::string_view value) : storage_(std::string(value)) {}  // NOLINT
  Value(std::string value) : storage_(std::move(value)) {}         // NOLINT
  Value(Data value) : storage_(std::move(value)) {}                // NOLINT
  Value(URL value) : storage_(std::move(value)) {}                 // NOLINT
  Value(Array value) : storage_(std::move(value)) {}               // NOLINT
  Value(Object value) : storage_(std::move(value)) {}              // NOLINT

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

  // The string; absent for anything but a string.
  Text text() const;

  // The number as a double: numbers, booleans as 1 and 0, and numeric text (leading white space,
  // sign, digits, point and exponent; what follows is ignored, no digits give 0). Absent for
  // everything else and for a value that is not finite.
  std::optional<double> numberValue() const;

  // The typed content, or null when the value is of another type.
  template <class T>
  const T* as() const {
    return std::get_if<T>(&storage_);
  }

  // The member of an object with this key, or null when there is none or this is no object.
  const Value* find(std::string_view key) const;
  Value* find(std::string_view key);

  // How the value reads in an error's printed form. A byte buffer prints as its length and a URL
  // without its query, since neither may carry a secret into a log.
  std::string description() const;

  friend bool operator==(const Value&, const Value&) = default;

 private:
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data, URL,
               Array, Object>
      storage_;
};

}  // namespace v1
}  // namespace qvr
