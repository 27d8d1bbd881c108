#include "host/Secrets.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace host {
namespace {

constexpr std::size_t kShortestSecret = 8;

struct Secrets {
  std::mutex mutex;
  std::vector<std::string> texts;
};

// Never destroyed: a handler that comes late may still write a line.
Secrets& secrets() {
  static Secrets& instance = *new Secrets;
  return instance;
}

void replaceAll(std::string& text, std::string_view what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

// As a URL or a form has it (RFC 3986 section 2), which is how a server may have got it.
std::string escaped(std::string_view text, const char* digits) {
  constexpr std::string_view kUnreserved =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kUnreserved.find(c) != std::string_view::npos) {
      result += c;
    } else {
      result += {'%', digits[byte >> 4], digits[byte & 15]};
    }
  }
  return result;
}

// The secrets, as they are and escaped: made when a text is looked through, since most commands
// print none. The longest first, since one may be part of another.
std::vector<std::string> formsOfSecrets() {
  Secrets& kept = secrets();
  const std::lock_guard lock(kept.mutex);
  std::vector<std::string> forms;
  for (const std::string& text : kept.texts) {
    forms.push_back(text);
    forms.push_back(escaped(text, "0123456789ABCDEF"));
    forms.push_back(escaped(text, "0123456789abcdef"));
  }
  std::ranges::stable_sort(forms, std::ranges::greater(), &std::string::size);
  return forms;
}

}  // namespace

void keepSecret(std::string_view secret) {
  if (secret.size() < kShortestSecret) return;
  Secrets& kept = secrets();
  const std::lock_guard lock(kept.mutex);
  if (std::ranges::find(kept.texts, secret) == kept.texts.end()) kept.texts.emplace_back(secret);
}

std::string withoutSecrets(std::string_view text) {
  std::string result(text);
  for (const std::string& secret : formsOfSecrets())
    replaceAll(result, secret, "{length = " + std::to_string(secret.size()) + "}");
  return result;
}

}  // namespace host
