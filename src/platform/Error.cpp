#include "QVROAuth2Client/platform/Error.h"

namespace qvr {
inline namespace v1 {

namespace {

// The text of a failing URL loses its query here as the URL itself does when it is printed.
std::string printedValue(const Value::Member& member) {
  if (member.first == NSURLErrorFailingURLStringErrorKey) {
    const std::string* text = member.second.as<std::string>();
    if (text != nullptr) return text->substr(0, text->find_first_of("?#"));
  }
  return member.second.description();
}

Text textUnder(const Error& error, std::string_view key) {
  const Value* value = error.userInfoValue(key);
  return value != nullptr ? value->text() : std::nullopt;
}

}  // namespace

Error::Error(std::string_view domain, std::int64_t code, std::optional<UserInfo> userInfo)
    : domain_(domain), code_(code), userInfo_(std::move(userInfo)) {}

ErrorPtr Error::errorWithDomain(std::string_view domain, std::int64_t code,
                                std::optional<UserInfo> userInfo) {
  return ErrorPtr::adopt(new Error(domain, code, std::move(userInfo)));
}

const Value* Error::userInfoValue(std::string_view key) const {
  if (!userInfo_) return nullptr;
  for (const Value::Member& member : *userInfo_) {
    if (member.first == key) return &member.second;
  }
  return nullptr;
}

Text Error::localizedDescription() const {
  return textUnder(*this, NSLocalizedDescriptionKey);
}

std::string Error::description() const {
  Text text = localizedDescription();
  if (!text) text = textUnder(*this, NSDebugDescriptionErrorKey);
  std::string line = "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" +
                     text.value_or("(null)") + "\"";
  if (!userInfo_) return line;
  line += " UserInfo={";
  for (const Value::Member& member : *userInfo_) {
    if (&member != &userInfo_->front()) line += ", ";
    line += member.first + "=" + printedValue(member);
  }
  return line + "}";
}

}  // namespace v1
}  // namespace qvr
