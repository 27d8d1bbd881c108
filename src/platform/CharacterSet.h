// A set of ASCII characters, looked up by byte; a constant one is made by the compiler.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qvr {

class CharacterSet {
 public:
  constexpr explicit CharacterSet(std::string_view characters) {
    for (const char c : characters)
      isMember_[static_cast<std::uint8_t>(c)] = true;
  }

  constexpr bool contains(char c) const { return isMember_[static_cast<std::uint8_t>(c)]; }

 private:
  std::array<bool, 256> isMember_{};
};

}  // namespace qvr
