// base64 as SASL's mechanisms are sent in (RFC 4648 section 4).
#pragma once

#include <string>
#include <string_view>

namespace host {

// One line in the standard alphabet, padded with "=" to a multiple of four characters.
std::string base64(std::string_view bytes);

}  // namespace host
