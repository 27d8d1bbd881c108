// Headers of requests, and the texts of response statuses.
#include <algorithm>
#include <iterator>

#include "QVROAuth2Client/platform/URLSession.h"

namespace qvr {
inline namespace v1 {
namespace {

char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Field names are ASCII and compared without regard to case (RFC 9110 section 5.1).
bool isSameField(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowered(x) == lowered(y); });
}

template <class Headers>
auto findField(Headers& headers, std::string_view field) {
  return std::find_if(headers.begin(), headers.end(),
                      [field](const auto& header) { return isSameField(header.first, field); });
}

struct StatusText {
  std::int64_t statusCode;
  const char* text;
};

// In the order of the codes.
constexpr StatusText kStatusTexts[] = {
    {100, "continue"},
    {101, "switching protocols"},
    {200, "no error"},
    {201, "created"},
    {202, "accepted"},
    {203, "non-authoritative information"},
    {204, "no content"},
    {205, "reset content"},
    {206, "partial content"},
    {300, "multiple choices"},
    {301, "moved permanently"},
    {302, "found"},
    {303, "see other"},
    {304, "not modified"},
    {305, "needs proxy"},
    {307, "temporarily redirected"},
    {400, "bad request"},
    {401, "unauthorized"},
    {402, "payment required"},
    {403, "forbidden"},
    {404, "not found"},
    {405, "method not allowed"},
    {406, "unacceptable"},
    {407, "proxy authentication required"},
    {408, "request timed out"},
    {409, "conflict"},
    {410, "no longer exists"},
    {411, "length required"},
    {412, "precondition failed"},
    {413, "request too large"},
    {414, "requested URL too long"},
    {415, "unsupported media type"},
    {416, "requested range not satisfiable"},
    {417, "expectation failed"},
    {500, "internal server error"},
    {501, "unimplemented"},
    {502, "bad gateway"},
    {503, "service unavailable"},
    {504, "gateway timed out"},
    {505, "unsupported version"},
};

const char* textOfStatusClass(std::int64_t statusCode) {
  switch (statusCode / 100) {
    case 1:
      return "informational";
    case 2:
      return "success";
    case 3:
      return "redirected";
    case 4:
      return "client error";
    default:
      return "server error";
  }
}

}  // namespace

void URLRequest::addValue(std::string_view value, std::string_view field) {
  const auto existing = findField(headers, field);
  if (existing == headers.end()) {
    headers.emplace_back(field, value);
  } else {
    existing->second.append(",").append(value);
  }
}

Text URLRequest::valueForHTTPHeaderField(std::string_view field) const {
  const auto header = findField(headers, field);
  if (header == headers.end()) return std::nullopt;
  return header->second;
}

std::string HTTPURLResponse::localizedStringForStatusCode(std::int64_t statusCode) {
  const auto* const entry = std::lower_bound(
      std::begin(kStatusTexts), std::end(kStatusTexts), statusCode,
      [](const StatusText& status, std::int64_t code) { return status.statusCode < code; });
  if (entry != std::end(kStatusTexts) && entry->statusCode == statusCode) return entry->text;
  return textOfStatusClass(statusCode);
}

}  // namespace v1
}  // namespace qvr
