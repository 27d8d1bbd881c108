#include "src/client/FormEncoding.h"

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/PercentCoding.h"
#include "src/platform/Unicode.h"

namespace {

constexpr qvr::CharacterSet kFormCharacters(
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789*-._");

bool hasSpaces(qvr::TextView text) {
  return text.view().find(' ') != std::string_view::npos;
}

[[noreturn]] void raiseRangeException(std::string_view text) {
  throw qvr::RangeException(
      "*** -[NSString substringWithRange:]: Range {9223372036854775807, 0} out of bounds; string "
      "length " +
      std::to_string(qvr::UTF16Length(text)));
}

qvr::Text encodedWithSpaces(std::string_view text) {
  std::string result(text);
  std::size_t following = text.size();
  for (std::size_t space = text.find(' '); space != std::string_view::npos;
       space = text.find(' ', space + 1)) {
    const qvr::Text prefix = qvr::percentEncoded(text.substr(0, space), kFormCharacters);
    if (!prefix) return std::nullopt;
    result += *prefix + "+";
    following = text.size() - space - 1;
  }
  if (following > 0) raiseRangeException(text);
  return result;
}

}  // namespace

qvr::Text formPercentEncoded(qvr::TextView text) {
  if (hasSpaces(text)) return encodedWithSpaces(text.view());
  return qvr::percentEncoded(text, kFormCharacters);
}

std::string formParameter(qvr::TextView name, qvr::TextView value) {
  if (!hasSpaces(value)) return qvr::encodedPair(name, value, kFormCharacters);
  std::string parameter = qvr::encodedPair(name, "", kFormCharacters);
  return parameter += encodedWithSpaces(value.view()).value_or(std::string(qvr::kNotEncoded));
}
