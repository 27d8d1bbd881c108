#include "host/NarratedText.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "QVROAuth2Client/platform/JSON.h"
#include "host/Console.h"
#include "host/Secrets.h"
#include "host/Steps.h"

namespace host {
namespace {

constexpr std::size_t kLongestName = 40;
constexpr std::size_t kLongestValue = 300;

// Parameters of RFC 6749, RFC 7636 and the providers.
constexpr std::string_view kHarmlessFields[] = {
    "grant_type",     "client_id",     "scope",
    "redirect_uri",   "response_type", "code_challenge_method",
    "prompt",         "login_hint",    "domain_hint",
    "access_type",    "error",         "error_description",
    "token_type_hint"};
constexpr std::string_view kHarmlessMembers[] = {"expires_in", "scope", "token_type", "error",
                                                 "error_description"};
// What is remembered. Not the challenge and the state of an authorization request: its address is
// for the user to open, and is printed whole.
constexpr std::string_view kSecrets[] = {
    "client_secret", "code", "code_verifier", "refresh_token", "access_token", "id_token", "token"};

template <class List>
bool holds(const List& names, std::string_view name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

int valueOfDigit(char digit) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const std::size_t at = kDigits.find(static_cast<char>(digit | (digit >= 'A' ? 0x20 : 0)));
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// As of a form, or of anything else, where "+" is no space. A "%" that begins no escape stands for
// itself.
std::string decoded(std::string_view text, bool isForm = true) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? valueOfDigit(text[i + 1]) : -1;
    const int low = high >= 0 ? valueOfDigit(text[i + 2]) : -1;
    if (low >= 0) {
      result += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      result += isForm && text[i] == '+' ? ' ' : text[i];
    }
  }
  return result;
}

// In any of the encodings that it may have come in.
bool holdsSecret(const std::string& text) {
  const std::string readings[] = {text, decoded(text), decoded(text, false)};
  return std::any_of(std::begin(readings), std::end(readings),
                     [](const std::string& each) { return withoutSecrets(each) != each; });
}

// A name is a word; what is none may be anything.
std::string narratedName(std::string_view name) {
  const auto isOfWord = [](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           c == '-' || c == '.';
  };
  const bool isWord = !name.empty() && name.size() <= kLongestName &&
                      std::all_of(name.begin(), name.end(), isOfWord);
  return isWord ? std::string(name) : lengthOf(name);
}

std::string narratedField(std::string_view field) {
  const std::size_t equals = field.find('=');
  if (equals == std::string_view::npos) return lengthOf(decoded(field));
  const std::string name = decoded(field.substr(0, equals));
  const std::string value = decoded(field.substr(equals + 1));
  if (holds(kSecrets, name)) keepSecret(value);
  return narratedName(name) + "=" +
         (holds(kHarmlessFields, name) ? narratedValue(value) : lengthOf(value));
}

std::string listed(const std::string& list, const std::string& next) {
  return list.empty() ? next : list + ", " + next;
}

// Without its value, unless it is a harmless text or number.
std::string narratedMember(const qvr::Value::Member& member) {
  const auto& [name, value] = member;
  const std::string begin = narratedName(name) + ": ";
  const bool isHarmless = holds(kHarmlessMembers, name);
  if (const qvr::Text text = value.text())
    return begin + (isHarmless ? narratedValue(*text) : lengthOf(*text));
  if (value.isNull()) return begin + "null";
  if (value.as<bool>() != nullptr) return begin + "a boolean";
  if (value.as<qvr::Value::Array>() != nullptr) return begin + "an array";
  if (value.as<qvr::Value::Object>() != nullptr) return begin + "an object";
  return begin + (isHarmless ? value.description() : "a number");
}

// Before anything of the object is shown: a member may repeat another's secret.
void keepSecrets(const qvr::Value::Object& object) {
  for (const auto& [name, value] : object) {
    if (holds(kSecrets, name)) keepSecret(value.text().value_or(""));
  }
}

// The members of all objects in a JSON text: each has a colon outside of strings.
std::size_t membersWritten(std::string_view json) {
  std::size_t count = 0;
  bool isInString = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') isInString = !isInString;
    if (json[i] == ':' && !isInString) ++count;
    if (json[i] == '\\') ++i;
  }
  return count;
}

std::size_t membersRead(const qvr::Value& value) {
  std::size_t count = 0;
  if (const auto* const array = value.as<qvr::Value::Array>()) {
    for (const qvr::Value& element : *array)
      count += membersRead(element);
  }
  if (const auto* const object = value.as<qvr::Value::Object>()) {
    for (const auto& [name, member] : *object)
      count += 1 + membersRead(member);
  }
  return count;
}

}  // namespace

std::string narratedValue(std::string_view text) {
  if (holdsSecret(std::string(text))) return lengthOf(text);
  return shortened(printable(text), kLongestValue);
}

std::string narratedFields(std::string_view fields) {
  std::string list;
  while (!fields.empty()) {
    const std::size_t end = std::min(fields.find('&'), fields.size());
    list = listed(list, narratedField(fields.substr(0, end)));
    fields.remove_prefix(std::min(end + 1, fields.size()));
  }
  return list;
}

std::string narratedURL(const qvr::URL& url) {
  std::string text = url.scheme().value_or("") + ":";
  if (const qvr::Text host = url.host()) text += "//" + narratedValue(*host);
  if (url.port()) text += ":" + std::to_string(*url.port());
  const std::string path = url.path().value_or("");
  // What was pasted of a redirect without its beginning is all path, the code in it.
  text += path.find('=') == std::string::npos ? narratedValue(path) : lengthOf(path);
  const qvr::Text query = url.query();
  return query ? text + "?(" + narratedFields(*query) + ")" : text;
}

std::string narratedJSON(std::string_view text) {
  if (text.empty()) return "empty";
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const std::optional<qvr::Value> value = qvr::JSONObjectWithData({bytes, text.size()}, nullptr);
  const auto* const object = value ? value->as<qvr::Value::Object>() : nullptr;
  const bool isUTF8 = text.find('\0') == std::string_view::npos;  // UTF-16 and UTF-32 hold some
  if (object == nullptr || !isUTF8) return "not a JSON object";
  // The reader drops a member whose name came before; what it held may be a secret that is
  // repeated.
  if (membersWritten(text) != membersRead(*value)) return "a JSON object that repeats a name";
  keepSecrets(*object);
  std::string members;
  for (const qvr::Value::Member& member : *object)
    members = listed(members, narratedMember(member));
  return "{" + members + "}";
}

}  // namespace host
