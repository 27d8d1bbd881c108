#include "src/ports/CurlSessionRequest.h"

#include <algorithm>
#include <string_view>

namespace qvr {
namespace {

constexpr std::string_view kUserAgent = "QVROAuth2Client/1.0";

// Schemes are compared without regard to case (RFC 3986 section 3.1).
bool isHTTPScheme(const Text& scheme) {
  if (!scheme) return false;
  std::string lowered = *scheme;
  std::transform(lowered.begin(), lowered.end(), lowered.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lowered == "http" || lowered == "https";
}

// Methods and field names are tokens (RFC 9110 section 5.6.2).
bool isToken(std::string_view text) {
  constexpr std::string_view kTokenCharacters =
      "!#$%&'*+-.^_`|~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return !text.empty() && text.find_first_not_of(kTokenCharacters) == std::string_view::npos;
}

bool isHeader(const HTTPHeaders::value_type& header) {
  constexpr std::string_view kLineEnds("\r\n\0", 3);
  return isToken(header.first) && header.second.find_first_of(kLineEnds) == std::string::npos;
}

std::string headerLine(const HTTPHeaders::value_type& header) {
  // libcurl takes "Name:" as an order to leave the field out, and "Name;" as an empty field.
  return header.second.empty() ? header.first + ";" : header.first + ": " + header.second;
}

}  // namespace

std::optional<std::int64_t> refusalOfRequest(const URLRequest& request) {
  if (!isHTTPScheme(request.url.scheme())) return NSURLErrorUnsupportedURL;
  // libcurl would take the first component of the path for a missing host.
  if (request.url.host().value_or("").empty()) return NSURLErrorBadURL;
  const bool isWellFormed = isToken(request.HTTPMethod) &&
                            std::all_of(request.headers.begin(), request.headers.end(), isHeader);
  if (!isWellFormed) return NSURLErrorUnknown;
  return std::nullopt;
}

std::vector<std::string> headerLines(const URLRequest& request) {
  std::vector<std::string> lines;
  for (const auto& header : request.headers)
    lines.push_back(headerLine(header));
  const auto addUnlessSet = [&](std::string_view field, const std::string& line) {
    if (!request.valueForHTTPHeaderField(field)) lines.push_back(line);
  };
  addUnlessSet("User-Agent", "User-Agent: " + std::string(kUserAgent));
  addUnlessSet("Accept", "Accept:");
  addUnlessSet("Content-Type", "Content-Type:");
  addUnlessSet("Expect", "Expect:");
  return lines;
}

}  // namespace qvr
