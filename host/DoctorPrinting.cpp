#include "host/DoctorPrinting.h"

#include <algorithm>
#include <string_view>

#include "host/Console.h"
#include "host/Secrets.h"

namespace host {
namespace {

constexpr std::size_t kStateWidth = 9;

std::string_view nameOf(Check::State state) {
  switch (state) {
    case Check::State::kOk:
      return "ok";
    case Check::State::kWarning:
      return "warning";
    case Check::State::kProblem:
      return "problem";
  }
  return "problem";
}

// A path may be of any bytes.
std::string asUTF8(std::string text) {
  if (isUTF8(text)) return text;
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c >= 0x80; }, '?');
  return text;
}

std::string shown(std::string_view text) {
  return asUTF8(printable(withoutSecrets(text)));
}

// A JSON string (RFC 8259 section 7) of text without control characters.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : shown(text)) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

std::string objectOf(const Check& check) {
  return "{\"name\":" + quoted(check.name) + ",\"state\":" + quoted(nameOf(check.state)) +
         ",\"message\":" + quoted(check.sentence) + ",\"remedy\":" + quoted(check.remedy) + "}";
}

}  // namespace

std::string textOf(const Checks& checks) {
  std::string text;
  for (const Check& check : checks) {
    std::string state(nameOf(check.state));
    state.resize(kStateWidth, ' ');
    text += state + shown(check.name) + ": " + shown(check.sentence) + "\n";
    if (!check.remedy.empty()) text += std::string(kStateWidth, ' ') + shown(check.remedy) + "\n";
  }
  return text;
}

std::string jsonOf(const Checks& checks) {
  std::string objects;
  for (const Check& check : checks)
    objects += (objects.empty() ? "" : ",") + objectOf(check);
  return "{\"checks\":[" + objects + "],\"problems\":" +
         std::to_string(std::count_if(checks.begin(), checks.end(), isProblem)) + "}\n";
}

}  // namespace host
