// Percent coding (RFC 3986 section 2.1).
#pragma once

#include <string_view>

#include "QVROAuth2Client/platform/Text.h"

namespace qvr {

// Writes every byte that is not one of `kept` (ASCII characters) as "%" and two upper-case hex
// digits. Absent for absent text and for text that is not UTF-8.
Text percentEncoded(TextView text, std::string_view kept);

// Undoes it; "+" stays "+". Absent for absent text, for a broken escape, and when the result is not
// UTF-8.
Text percentDecoded(TextView text);

// "key=value" out of two encoded texts, an absent one printing as "(null)".
std::string encodedPair(const Text& key, const Text& value);

}  // namespace qvr
