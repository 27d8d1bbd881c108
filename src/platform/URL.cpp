#include "QVROAuth2Client/platform/URL.h"

#include <algorithm>
#include <charconv>

#include "src/platform/CharacterSet.h"
#include "src/platform/PercentCoding.h"

namespace qvr {
inline namespace v1 {
namespace {

constexpr std::size_t kNone = std::string::npos;

constexpr bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The bytes that may stand anywhere in a URL; "%" and "#" have rules of their own.
constexpr CharacterSet kLegalCharacters(
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!$&'()*+,-./:;=?@_~[]");

bool isEscape(std::string_view text) {
  return text.size() > 2 && text[0] == '%' && isHexDigit(text[1]) && isHexDigit(text[2]);
}

// Legal bytes, whole escapes, and at most one "#".
bool isLegalText(std::string_view text) {
  bool hasFragment = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (kLegalCharacters.contains(text[i])) continue;
    if (isEscape(text.substr(i))) {
      i += 2;
    } else if (text[i] == '#' && !hasFragment) {
      hasFragment = true;
    } else {
      return false;
    }
  }
  return true;
}

// RFC 3986 section 3.1.
bool isScheme(std::string_view text) {
  return !text.empty() && isAlpha(text[0]) && std::all_of(text.begin(), text.end(), [](char c) {
    return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
  });
}

}  // namespace

std::optional<URL> URL::URLWithString(TextView text) {
  if (!text || !isLegalText(text.view())) return std::nullopt;
  URL url{std::string(text.view())};
  if (!url.parse()) return std::nullopt;
  return url;
}

// Splits as RFC 3986 appendix B does. Text that begins with ":" has no scheme, and its rest is read
// as after one. A ":" in the first segment after anything else is not legal (section 4.2).
bool URL::parse() {
  const std::string_view text = text_;
  std::size_t start = 0;
  const std::size_t delimiter = text.find_first_of(":/?#");
  if (delimiter != kNone && text[delimiter] == ':') {
    if (delimiter > 0 && !isScheme(text.substr(0, delimiter))) return false;
    if (delimiter > 0) scheme_ = {0, delimiter};
    start = delimiter + 1;
  }
  const std::size_t end = std::min(text.find('#', start), text.size());
  const std::size_t question = std::min(text.find('?', start), end);
  if (question < end) query_ = {question + 1, end - question - 1};
  return parseHierarchy(start, question);
}

// [ "//" authority ] path. With a scheme and neither authority nor a leading slash it is opaque.
bool URL::parseHierarchy(std::size_t start, std::size_t end) {
  const std::string_view text(text_.data(), end);
  if (text.substr(start).starts_with("//")) {
    const std::size_t slash = std::min(text.find('/', start + 2), end);
    path_ = {slash, end - slash};
    return parseAuthority(start + 2, slash);
  }
  const bool isOpaque = scheme_.start != kNone && !text.substr(start).starts_with('/');
  if (start < end && !isOpaque) path_ = {start, end - start};
  return true;
}

// [ userinfo "@" ] host [ ":" port ] (RFC 3986 section 3.2).
bool URL::parseAuthority(std::size_t start, std::size_t end) {
  const std::string_view text(text_.data(), end);
  const std::size_t at = text.find('@', start);
  if (at != kNone) {
    if (text.substr(start, at - start).find_first_of("[]") != kNone) return false;
    start = at + 1;
  }
  const bool isLiteral = text.substr(start).starts_with('[');
  if (isLiteral) ++start;
  const std::size_t hostEnd =
      isLiteral ? text.find(']', start) : std::min(text.find(':', start), end);
  if (hostEnd == kNone || !parseHost(start, hostEnd, isLiteral)) return false;
  return parsePort(isLiteral ? hostEnd + 1 : hostEnd, end);
}

// An IP literal is what stands between brackets; it has a colon, no name has.
bool URL::parseHost(std::size_t start, std::size_t end, bool isLiteral) {
  const std::string_view host = std::string_view(text_).substr(start, end - start);
  if (host.find_first_of("[]@") != kNone || !percentDecoded(host)) return false;
  if (isLiteral && host.find(':') == kNone) return false;
  if (!host.empty()) host_ = {start, host.size()};
  return true;
}

// Nothing, or ":" and digits, which may be missing (RFC 3986 section 3.2.3).
bool URL::parsePort(std::size_t start, std::size_t end) {
  if (start == end) return true;
  if (text_[start] != ':') return false;
  if (start + 1 == end) return true;
  std::uint32_t port = 0;
  const char* const last = text_.data() + end;
  const auto [rest, error] = std::from_chars(text_.data() + start + 1, last, port);
  if (error != std::errc() || rest != last) return false;
  port_ = port;
  return true;
}

TextView URL::part(Range range) const {
  if (range.start == kNone) return std::nullopt;
  return std::string_view(text_).substr(range.start, range.length);
}

Text URL::scheme() const {
  return part(scheme_).text();
}
Text URL::host() const {
  return percentDecoded(part(host_));
}
std::optional<std::uint32_t> URL::port() const {
  return port_;
}
Text URL::path() const {
  return percentDecoded(part(path_));
}
Text URL::query() const {
  return part(query_).text();
}

}  // namespace v1
}  // namespace qvr
