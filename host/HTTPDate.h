// The dates that servers write into the headers of their answers.
#pragma once

#include <optional>
#include <string_view>

#include "QVROAuth2Client/platform/Date.h"

namespace host {

// Reads an IMF-fixdate such as "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110 section 5.6.7), and
// nothing else: the two obsolete forms are no longer sent. Absent for a date that does not exist or
// has another day of the week. A leap second counts as the second after it.
std::optional<qvr::Date> dateFromHTTP(std::string_view text);

}  // namespace host
