// The library's log: one line a call, to the host's sink.
#pragma once

#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Error.h"

namespace qvr {

// Writes `text` as one line: a control character, which a server may have put there, becomes a
// space.
void logLine(std::string text);

// Writes "method: error"; a null error prints as "(null)".
void logError(std::string_view method, const ErrorPtr& error);

}  // namespace qvr
