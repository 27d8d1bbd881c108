// The bytes of a stored record: a keyed archive whose root object is the token.
#pragma once

#include <optional>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Error.h"

// Absent, with NSCocoaErrorDomain 4866 in *error, when the record cannot be written.
std::optional<qvr::Data> archivedToken(const QVROAuth2Token& token, qvr::ErrorPtr* error);

// Null, with NSCocoaErrorDomain 4864 or 4865 in *error, when the bytes hold no token.
qvr::Ref<QVROAuth2Token> unarchivedToken(const qvr::Data& data, qvr::ErrorPtr* error);
