// The form encoding of the token requests. It differs from the authorization query's on purpose:
// the set of kept characters is that of application/x-www-form-urlencoded.
#pragma once

#include <string>

#include "QVROAuth2Client/platform/Text.h"

// formPercentEncoded
// The text with all but letters, digits and "*-._" percent-encoded; absent for text that is not
// UTF-8. What the library itself sends holds no spaces. Text that does is treated in a way of its
// own, which is fixed and not to be turned into the usual "+" for a space: text that ends with a
// space comes out as itself, followed, for each space, by all the encoded text before that space
// and a "+"; text that goes on after its last space raises RangeException.
qvr::Text formPercentEncoded(qvr::TextView text);

// A form parameter: encoded name, which has no spaces, "=", encoded value.
std::string formParameter(qvr::TextView name, qvr::TextView value);
