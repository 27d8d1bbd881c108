// Why a stored record is of no use to `token`, and what to do about it. Each answers nothing when
// there is no such problem.
#pragma once

#include <optional>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Date.h"
#include "host/Account.h"
#include "host/Configuration.h"
#include "host/Failure.h"

namespace host {

// It cannot be refreshed: there is no refresh token that could be sent, or no registration.
std::optional<Failure> refreshProblem(const Configuration& configuration, const Account& account,
                                      const QVROAuth2Token& record);

// It has expired, and there is no refresh token.
std::optional<Failure> expiryProblem(const Account& account, const QVROAuth2Token& record,
                                     qvr::Date now);

// It has no access token that is one line of visible characters.
std::optional<Failure> printingProblem(const Account& account, const QVROAuth2Token& record);

}  // namespace host
