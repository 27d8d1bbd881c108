// How a refreshed record comes from a response and the record before it.
#pragma once

#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"
#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Error.h"

// The scopes of a "scope" text: what single spaces separate, empty members included.
qvr::TextSet scopesFromText(std::string_view scope);

// The new record, created now; what the response leaves out is kept from the old one (RFC 6749
// section 6: the server may issue no new refresh token, and then the old one stays). Null, with
// QVROAuth2ErrorDomain 0 naming what is missing in *error, for a response without "access_token" or
// "token_type" (RFC 6749 section 5.1).
qvr::Ref<QVROAuth2Token> refreshedToken(const QVROAuth2AccessTokenResponse& response,
                                        const QVROAuth2Token& oldToken, qvr::ErrorPtr* error);
