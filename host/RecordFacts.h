// What a stored record tells about itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Date.h"

namespace host {

// When the access token expires, as a date that RFC 3339 can write. Absent when the record has no
// lifetime, or one that is no number.
std::optional<qvr::Date> expiryDate(const QVROAuth2Token& record);

// Whole seconds until then, rounded down; below zero once it has passed.
std::optional<std::int64_t> secondsUntilExpiry(const QVROAuth2Token& record, qvr::Date now);

// False for a record without a lifetime. The library serves a record without a refresh token
// however old it is; the server would refuse such a token, so the command does.
bool hasExpired(const QVROAuth2Token& record, qvr::Date now);

bool hasRefreshToken(const QVROAuth2Token& record);

// Sorted; none when the record does not say.
std::vector<std::string> scopesOf(const QVROAuth2Token& record);

}  // namespace host
