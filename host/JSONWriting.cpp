#include "host/JSONWriting.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "host/ShownText.h"

namespace host {
namespace {

constexpr const char* kNull = "null";

// U+0080 to U+009F are these two bytes in UTF-8.
bool startsC1(std::string_view text) {
  return text.size() > 1 && text[0] == '\xc2' && static_cast<unsigned char>(text[1]) < 0xa0;
}

std::string escaped(unsigned char codePoint) {
  char text[8];
  std::snprintf(text, sizeof text, "\\u%04x", codePoint);
  return text;
}

// What stands for the first byte of the text.
std::string quotedByte(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (byte < 0x20 || byte == 0x7f) return escaped(byte);
  if (c == '"' || c == '\\') return {'\\', c};
  return {c};
}

std::string withCommas(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts)
    result += (result.empty() ? "" : ",") + text;
  return result;
}

}  // namespace

std::string jsonString(std::string_view text) {
  const std::string valid = asUTF8(text);
  std::string result = "\"";
  for (std::string_view rest = valid; !rest.empty();) {
    const bool isC1 = startsC1(rest);
    result += isC1 ? escaped(static_cast<unsigned char>(rest[1])) : quotedByte(rest[0]);
    rest.remove_prefix(isC1 ? 2 : 1);
  }
  return result + "\"";
}

std::string jsonStrings(const std::vector<std::string>& texts) {
  std::vector<std::string> values;
  std::transform(texts.begin(), texts.end(), std::back_inserter(values), jsonString);
  return jsonArray(values);
}

std::string jsonNumber(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : kNull;
}

std::string jsonStringOrNull(const std::optional<std::string>& text) {
  return text ? jsonString(*text) : kNull;
}

std::string jsonBoolean(bool value) {
  return value ? "true" : "false";
}

std::string jsonArray(const std::vector<std::string>& values) {
  return "[" + withCommas(values) + "]";
}

std::string jsonObject(const std::vector<JSONMember>& members) {
  std::vector<std::string> texts;
  for (const auto& [name, value] : members)
    texts.push_back(jsonString(name) + ":" + value);
  return "{" + withCommas(texts) + "}";
}

}  // namespace host
