#include "src/platform/Decimal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace qvr {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The exponent after "e", which may be out of any range.
std::int64_t exponentIn(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t exponent = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), exponent);
  if (result.ec == std::errc::result_out_of_range) {
    exponent = std::numeric_limits<std::int64_t>::max() / 2;
  }
  return isNegative ? -exponent : exponent;
}

// Whether an unsigned number that no double holds is too large, not too small. Between the two lie
// some six hundred powers of ten, so the place of the first digit that counts decides.
bool isHuge(std::string_view number) {
  const std::size_t mantissaEnd = std::min(number.find_first_of("eE"), number.size());
  const std::string_view mantissa = number.substr(0, mantissaEnd);
  const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
  const std::size_t first = mantissa.find_first_not_of("0.");
  const auto place = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  const bool hasExponent = mantissaEnd < number.size();
  return place + (hasExponent ? exponentIn(number.substr(mantissaEnd + 1)) : 0) > 0;
}

}  // namespace

double doubleFromDecimal(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  std::string_view number = text.substr(isNegative ? 1 : 0);
  if (number.empty() || !(isDigit(number[0]) || number[0] == '.')) return 0;
  double value = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  if (error == std::errc::result_out_of_range) {
    number = number.substr(0, static_cast<std::size_t>(end - number.data()));
    value = isHuge(number) ? std::numeric_limits<double>::infinity() : 0;
  }
  return isNegative ? -value : value;
}

}  // namespace qvr
