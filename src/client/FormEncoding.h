// The form encoding of the token requests. It differs from the authorization query's on purpose:
// the set of kept characters is that of application/x-www-form-urlencoded.
#pragma once

#include <string>

#include "QVROAuth2Client/platform/Text.h"

// formPercentEncoded
// The text with all but letters, digits and "*-._" percent-encoded; absent for text that is not
// UTF-8. Text with a space is treated in a way of its own, which the providers' registrations rely
// on: a text whose last space ends it comes out as itself, followed by the encoded text before each
// space and a "+"; a space with text after the last one raises RangeException.
qvr::Text formPercentEncoded(qvr::TextView text);

// A form parameter: encoded name, "=", encoded value.
std::string formParameter(qvr::TextView name, qvr::TextView value);
