// Text of unknown origin, made fit for standard output, which writeOut() leaves as it is.
#pragma once

#include <string>
#include <string_view>

namespace host {

// The text when it is UTF-8; otherwise with "?" for every byte that is not ASCII.
std::string asUTF8(std::string_view text);

// The text without a secret, without a control character, and in UTF-8.
std::string shown(std::string_view text);

}  // namespace host
