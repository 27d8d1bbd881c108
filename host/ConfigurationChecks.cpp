// What the library, a provider or a browser would refuse is refused here, in words.
#include <algorithm>
#include <charconv>

#include "host/Configuration.h"

namespace host {
namespace {

constexpr std::size_t kLongestName = 255;

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

template <class Predicate>
bool all(std::string_view text, Predicate predicate) {
  return std::all_of(text.begin(), text.end(), predicate);
}

bool isPort(std::string_view text) {
  unsigned port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  return error == std::errc() && stop == end && port >= 1 && port <= 65535;
}

bool isHostName(std::string_view text) {
  if (text.starts_with('[') && text.ends_with(']')) {  // an IPv6 address
    const std::string_view address = text.substr(1, text.size() - 2);
    return !address.empty() &&
           all(address, [](char c) { return isHexDigit(c) || c == ':' || c == '.'; });
  }
  return !text.empty() && text.size() <= kLongestName && !text.starts_with('.') &&
         !text.starts_with('-') &&
         all(text, [](char c) { return isLetter(c) || isDigit(c) || c == '.' || c == '-'; });
}

}  // namespace

std::string problemWithBundleIdentifier(std::string_view text) {
  const bool legal =
      !text.empty() && text.size() <= kLongestName && isLetter(text.front()) &&
      all(text, [](char c) { return isLetter(c) || isDigit(c) || c == '.' || c == '-'; });
  if (legal && !text.ends_with('.')) return "";
  return "must be a name such as \"org.example.mail\": a letter, then letters, digits, \".\" and "
         "\"-\", since it becomes part of a URI scheme";
}

std::string problemWithURIScheme(std::string_view text) {
  if (text == "http" || text == "https") {
    return "must be a scheme of your own: the browser keeps \"http\" and \"https\" for itself";
  }
  const bool legal = !text.empty() && text.size() <= kLongestName && isLetter(text.front()) &&
                     all(text, [](char c) {
                       return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
                     });
  if (legal) return "";
  return "must be a URI scheme (a letter, then letters, digits, \"+\", \"-\" and \".\"), without "
         "\":\" and what follows it";
}

std::string problemWithCredential(std::string_view text) {
  if (!text.empty() && all(text, [](char c) { return c > 0x20 && c < 0x7f; })) return "";
  return "must be copied from the provider without spaces or line breaks";
}

std::string problemWithApplicationIdentifier(std::string_view text) {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  const bool legal = text.size() == kForm.size() &&
                     std::equal(text.begin(), text.end(), kForm.begin(), [](char c, char form) {
                       return form == '-' ? c == '-' : isHexDigit(c);
                     });
  if (legal) return "";
  return "must be the application (client) identifier, 36 characters such as "
         "\"00000000-0000-0000-0000-000000000000\"";
}

std::string problemWithHost(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  const bool hasPort =
      colon != std::string_view::npos && (!text.starts_with('[') || text[colon - 1] == ']');
  const bool legal = isHostName(text.substr(0, hasPort ? colon : text.size())) &&
                     (!hasPort || isPort(text.substr(colon + 1)));
  if (legal) return "";
  return "must be a host name, or a host name, \":\" and a port, without \"https://\" and without "
         "a "
         "path";
}

std::string googleRedirectURI(std::string_view customURIScheme) {
  return std::string(customURIScheme) + ":/oauth2/auth";
}

std::string microsoftRedirectURI(std::string_view bundleIdentifier) {
  return "msauth." + std::string(bundleIdentifier) + "://auth";
}

}  // namespace host
