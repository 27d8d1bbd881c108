// Scopes: what a sign-in asks for, and whether it was granted (RFC 6749 section 3.3).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/Coder.h"

namespace host {

// What a mail program needs of the provider: IMAP, POP and SMTP, at Microsoft a refresh token, and
// to be told who signed in ("openid email", OpenID Connect Core section 5.4).
std::string_view defaultMailScope(std::string_view provider);

// The members of a list that is separated by single spaces, as the library keeps a granted scope:
// an empty text, and two spaces in a row, make an empty member.
qvr::TextSet splitScope(std::string_view scope);

// The requested scopes that are not among the granted ones, compared without regard to case. The
// four that stand for no access of their own ("openid", "profile", "email", "offline_access") are
// left out: providers rename them in their answers, or do not repeat them.
std::vector<std::string> missingScopes(const qvr::TextSet& requested, const qvr::TextSet& granted);

}  // namespace host
