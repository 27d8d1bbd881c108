// Text that may be absent, and byte buffers.
//
// Text is UTF-8. Absent is not empty: std::nullopt is "there is none", "" is text of no characters.
// Bytes that are not UTF-8 may be carried, and are what "cannot be converted" means wherever an
// operation encodes text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {
inline namespace v1 {

using Data = std::vector<std::uint8_t>;

// Owned text, or none. What results and stored properties are made of.
using Text = std::optional<std::string>;

// Borrowed text, or none: the type of every text argument. Accepts literals, strings, views, Text,
// nullptr and std::nullopt. It borrows for the call; the callee copies what it keeps.
class TextView {
 public:
  constexpr TextView() noexcept = default;
  constexpr TextView(std::nullptr_t) noexcept {}      // NOLINT(google-explicit-constructor)
  constexpr TextView(std::nullopt_t) noexcept {}      // NOLINT(google-explicit-constructor)
  constexpr TextView(std::string_view view) noexcept  // NOLINT(google-explicit-constructor)
      : view_(view), present_(true) {}
  constexpr TextView(const char* text) noexcept  // NOLINT(google-explicit-constructor)
      : view_(text != nullptr ? std::string_view(text) : std::string_view()),
        present_(text != nullptr) {}
  TextView(const std::string& text) noexcept  // NOLINT(google-explicit-constructor)
      : view_(text), present_(true) {}
  TextView(const Text& text) noexcept  // NOLINT(google-explicit-constructor)
      : view_(text ? std::string_view(*text) : std::string_view()), present_(text.has_value()) {}

  constexpr bool has_value() const noexcept { return present_; }
  constexpr explicit operator bool() const noexcept { return present_; }

  // The characters; empty when the text is absent.
  constexpr std::string_view view() const noexcept { return view_; }

  // A copy that is absent exactly when this is.
  Text text() const { return present_ ? Text(std::string(view_)) : std::nullopt; }

 private:
  std::string_view view_;
  bool present_ = false;
};

}  // namespace v1
}  // namespace qvr
