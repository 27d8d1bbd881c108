// Points in time, written for programs and for people.
#pragma once

#include <string>

#include "QVROAuth2Client/platform/Date.h"

namespace host {

// The nearest date that RFC 3339 can write: from the year 0000 to the year 9999.
qvr::Date writableDate(qvr::Date date);

// The second in which the writable date lies, in UTC: "2026-11-22T00:58:00Z" (RFC 3339 section
// 5.6).
std::string rfc3339(qvr::Date date);

// When something is that comes in so many seconds: "in 42 minutes", "7 minutes ago", "now". Rounded
// down, in the largest unit of which there are two.
std::string relativeTime(double seconds);

}  // namespace host
