// A request in libcurl's terms.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/URLSession.h"

namespace qvr {

// The code of NSURLErrorDomain for a request that is not sent at all: another scheme than http and
// https, a URL without a host, or a method or header that would not stay on its line.
std::optional<std::int64_t> refusalOfRequest(const URLRequest& request);

// Header lines as libcurl takes them: the request's own in their order, then those that keep
// libcurl from adding any that the request does not have.
std::vector<std::string> headerLines(const URLRequest& request);

}  // namespace qvr
