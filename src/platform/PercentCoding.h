// Percent coding (RFC 3986 section 2.1).
#pragma once

#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Text.h"
#include "src/platform/CharacterSet.h"

namespace qvr {

// Writes every byte that is not one of `kept` as "%" and two upper-case hex digits. Absent for
// absent text and for text that is not UTF-8.
Text percentEncoded(TextView text, const CharacterSet& kept);

// Undoes it; "+" stays "+". Absent for absent text, for a broken escape, and when the result is not
// UTF-8.
Text percentDecoded(TextView text);

// "key=value", both encoded; what percentEncoded() answers nothing for prints as kNotEncoded.
inline constexpr std::string_view kNotEncoded = "(null)";
std::string encodedPair(TextView key, TextView value, const CharacterSet& kept);

}  // namespace qvr
