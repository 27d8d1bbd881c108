// The header fields of an answer (RFC 9110 section 5).
#pragma once

#include <optional>
#include <string_view>

#include "QVROAuth2Client/platform/URLSession.h"

namespace host {

// The value of the first field of this name, in whatever case, without the white space around it;
// absent when there is none. It is part of the response.
std::optional<std::string_view> headerField(const qvr::HTTPURLResponse& response, const char* name);

}  // namespace host
