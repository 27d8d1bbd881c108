// Decimal numbers in text, read the same way in every locale.
#pragma once

#include <string_view>

namespace qvr {

// The number at the start of `text`: an optional "-", digits, a point and digits, an exponent; what
// follows is ignored. What is too large is infinite, what is too small is zero, both with their
// sign; text that does not begin with a number gives 0.
double doubleFromDecimal(std::string_view text);

}  // namespace qvr
