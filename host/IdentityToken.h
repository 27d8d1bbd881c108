// Who signed in, as an ID token tells (OpenID Connect Core sections 2 and 5.1).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/Text.h"
#include "host/Command.h"

namespace host {

// The "id_token" of an answer of the token endpoint; absent when there is none. It is a secret, and
// is kept out of what is printed from here on.
std::optional<std::string> idTokenInAnswer(const qvr::Data& body);

// The names of the account in an ID token: its "email", "preferred_username" and "upn", as far as
// they are there. Nothing for a token that is malformed or encrypted.
//
// The signature is not looked at: a token that comes from the token endpoint itself, over TLS, is
// vouched for by the connection (OpenID Connect Core section 3.1.3.7).
std::vector<std::string> accountNamesInIDToken(std::string_view token);

// Who an ID token is about: its "iss" and "sub" together, which no two accounts share and no
// account changes (OpenID Connect Core section 2). Absent when either is missing, empty, no text,
// or holds a NUL, and for a token that is malformed or encrypted. The signature is not looked at
// here either.
std::optional<std::string> subjectInIDToken(std::string_view token);

// What to tell a user who asked for one account and signed in to another: the names are there, and
// none is the account's, compared without regard to the case of ASCII letters.
std::optional<std::string> warningAboutAccount(const std::vector<std::string>& names,
                                               const Account& account);

}  // namespace host
