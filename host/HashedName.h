// Names of files that stand for something and tell nothing about it.
#pragma once

#include <string>
#include <string_view>

namespace host {

// 22 characters of the SHA-256 of the text, which must hold no zero byte, in base64url: short,
// legal as a file name, and different for different texts.
std::string hashedName(std::string_view text);

}  // namespace host
