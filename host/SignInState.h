// The "state" of an address (RFC 6749 section 4.1.2), by which a redirect finds its sign-in.
#pragma once

#include <optional>
#include <string>

#include "QVROAuth2Client/platform/URL.h"

namespace host {

// The state in the query of any URL, read as the library reads it: names and values are
// percent-decoded, "+" stays "+", the last one counts, and one that does not decode is none.
std::optional<std::string> stateInURL(const qvr::URL& url);

}  // namespace host
