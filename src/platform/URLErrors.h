// Transport errors: NSURLErrorDomain with the texts and keys that every session reports.
#pragma once

#include <cstdint>
#include <string_view>

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URL.h"

namespace qvr {

// The text of a code of NSURLErrorDomain; "unknown error" for a code that has none.
std::string_view URLErrorDescription(std::int64_t code);

// An error that names the failing URL. A debug description is for developers; it carries no secret.
ErrorPtr makeURLError(std::int64_t code, const URL& failingURL, TextView debugDescription = {});

}  // namespace qvr
