#include "host/HeaderField.h"

#include <strings.h>

#include <algorithm>

namespace host {

std::optional<std::string_view> headerField(const qvr::HTTPURLResponse& response,
                                            const char* name) {
  const auto field = std::find_if(
      response.headers.begin(), response.headers.end(),
      [name](const auto& header) { return strcasecmp(header.first.c_str(), name) == 0; });
  if (field == response.headers.end()) return std::nullopt;
  const std::string_view value = field->second;
  const std::size_t first = value.find_first_not_of(" \t");
  if (first == std::string_view::npos) return std::string_view();
  return value.substr(first, value.find_last_not_of(" \t") - first + 1);
}

}  // namespace host
