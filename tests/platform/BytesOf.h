// The bytes of a text, as the readers of bodies take them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace qvr {

inline std::span<const std::uint8_t> bytesOf(std::string_view body) {
  return {reinterpret_cast<const std::uint8_t*>(body.data()), body.size()};
}

}  // namespace qvr
