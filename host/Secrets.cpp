#include "host/Secrets.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace host {
namespace {

constexpr std::size_t kShortestSecret = 8;

struct Secrets {
  std::mutex mutex;
  std::vector<std::string> texts;  // the longest first, since one may be part of another
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

void keep(std::string text) {
  Secrets& kept = secrets();
  const std::lock_guard lock(kept.mutex);
  if (std::find(kept.texts.begin(), kept.texts.end(), text) != kept.texts.end()) return;
  const auto place =
      std::find_if(kept.texts.begin(), kept.texts.end(),
                   [&text](const std::string& other) { return other.size() < text.size(); });
  kept.texts.insert(place, std::move(text));
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

}  // namespace

void keepSecret(std::string_view secret) {
  if (secret.size() < kShortestSecret) return;
  keep(std::string(secret));
  keep(escaped(secret, "0123456789ABCDEF"));
  keep(escaped(secret, "0123456789abcdef"));
}

std::string withoutSecrets(std::string_view text) {
  std::string result(text);
  Secrets& kept = secrets();
  const std::lock_guard lock(kept.mutex);
  for (const std::string& secret : kept.texts) {
    replaceAll(result, secret, "{length = " + std::to_string(secret.size()) + "}");
  }
  return result;
}

}  // namespace host
