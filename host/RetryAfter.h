// When a server that cannot answer now wants to be asked again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/URLSession.h"

namespace host {

// The seconds of the answer's Retry-After (RFC 9110 section 10.2.3), whole or not: a number of
// seconds, or a date less the date of the answer's own Date field; less `now` where it has none
// that can be read. A date that has passed is 0. Absent without the field, and when it is neither a
// number nor a date; of several fields the first counts.
std::optional<double> retryAfterSeconds(const qvr::HTTPURLResponse& response, qvr::Date now);

// "Try again in 30 seconds.", "Try again in 5 minutes.", "Try again in about 2 hours."; rounded up,
// so that nobody comes too early. "Try again later." when it is not known, no time at all, or more
// than a day.
std::string tryAgainSentence(std::optional<double> seconds);

// True for a status of a server that may answer otherwise later: 5xx, 429 (RFC 6585 section 4) and
// 408 (RFC 9110 section 15.5.9).
bool isTransientStatus(std::int64_t status);

}  // namespace host
