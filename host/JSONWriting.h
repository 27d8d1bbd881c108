// JSON (RFC 8259), written on one line from text that may be anything.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

// A string with its quotes. Every control character is escaped, and so are delete and C1, which
// JSON would allow: they move a terminal's cursor. What is not UTF-8 becomes it (see ShownText.h).
std::string jsonString(std::string_view text);

// The same for each text, as an array.
std::string jsonStrings(const std::vector<std::string>& texts);

// null for what is absent.
std::string jsonNumber(const std::optional<std::int64_t>& number);
std::string jsonStringOrNull(const std::optional<std::string>& text);

std::string jsonBoolean(bool value);

// Of values that are JSON already.
using JSONMember = std::pair<std::string_view, std::string>;
std::string jsonArray(const std::vector<std::string>& values);
std::string jsonObject(const std::vector<JSONMember>& members);

}  // namespace host
