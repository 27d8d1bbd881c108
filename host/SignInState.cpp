#include "host/SignInState.h"

#include <algorithm>
#include <string_view>

namespace host {

namespace {

// Percent-decodes part of a query by way of a path, which a URL reports decoded: so there is one
// decoder. What would end the path early is escaped.
std::optional<std::string> decoded(std::string_view part) {
  std::string text = "x:/-";
  for (const char c : part)
    c == '?' ? text += "%3F" : text += c;
  const std::optional<qvr::URL> url = qvr::URL::URLWithString(text);
  const qvr::Text path = url ? url->path() : std::nullopt;
  return path ? std::optional(path->substr(2)) : std::nullopt;
}

}  // namespace

std::optional<std::string> stateInURL(const qvr::URL& url) {
  const std::string query = url.query().value_or("");
  std::optional<std::string> state;
  for (std::size_t start = 0; start < query.size();) {
    const std::size_t end = std::min(query.find('&', start), query.size());
    const std::string_view pair = std::string_view(query).substr(start, end - start);
    const std::size_t equals = pair.find('=');
    if (equals != std::string_view::npos && decoded(pair.substr(0, equals)) == "state")
      state = decoded(pair.substr(equals + 1));
    start = end + 1;
  }
  return state;
}

}  // namespace host
