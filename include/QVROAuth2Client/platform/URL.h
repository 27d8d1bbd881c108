// A strictly parsed URL (RFC 3986): nothing is encoded, normalised or guessed on the way in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Text.h"

namespace qvr {
inline namespace v1 {

// An immutable value. Legal are the characters of RFC 3986 with %HH escapes and at most one "#";
// any other text makes no URL. Redirect forms without an authority ("com.example:/path") and text
// that begins with ":" (which has a path, but no scheme) are legal.
class QVR_EXPORT URL {
 public:
  // URLWithString:
  // Returns nothing for absent text and for text that is not a URL.
  static std::optional<URL> URLWithString(TextView text);

  // The text as it was given.
  const std::string& absoluteString() const noexcept { return text_; }

  // The parts; each is absent when the URL has none. Scheme and host keep their case. Host and path
  // are percent-decoded (a path whose escapes are not UTF-8 is absent, and an opaque URL has no
  // path); a path that is there but has no characters is "". Query is as written, without "?".
  Text scheme() const;
  Text host() const;
  std::optional<std::uint32_t> port() const;
  Text path() const;
  Text query() const;

  friend bool operator==(const URL&, const URL&) = default;

 private:
  // A part of text_; a start of npos means that the part is absent.
  struct Range {
    std::size_t start = std::string::npos;
    std::size_t length = 0;
    friend bool operator==(const Range&, const Range&) = default;
  };

  explicit URL(std::string text) : text_(std::move(text)) {}
  bool parse();
  bool parseHierarchy(std::size_t start, std::size_t end);
  bool parseAuthority(std::size_t start, std::size_t end);
  bool parseHost(std::size_t start, std::size_t end, bool isLiteral);
  bool parsePort(std::size_t start, std::size_t end);
  TextView part(Range range) const;

  std::string text_;
  Range scheme_;
  Range host_;
  std::optional<std::uint32_t> port_;
  Range path_;
  Range query_;
};

}  // namespace v1
}  // namespace qvr
