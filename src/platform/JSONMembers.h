// Reading just those members of a body that are asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "QVROAuth2Client/platform/JSON.h"

namespace qvr {

// As JSONObjectWithData(), but an object has only those members that `names` lists: a server may
// send any number that nobody asks for.
std::optional<Value> JSONMembersWithData(std::span<const std::uint8_t> data,
                                         std::span<const std::string_view> names, ErrorPtr* error);

}  // namespace qvr
