// The library's log: one line a call, to the host's sink.
#pragma once

#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Error.h"

namespace qvr {

// Writes `text`.
void logLine(std::string_view text);

// Writes "method: error"; a null error prints as "(null)".
void logError(std::string_view method, const ErrorPtr& error);

}  // namespace qvr
