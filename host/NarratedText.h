// Requests, addresses and answers in the words of a step (see Steps.h): fields are named, and only
// what is known to be harmless is shown with its value. Anything else, whether it is known to be a
// secret or not known at all, is shown by its length: a secret may come under any name and in any
// encoding.
//
// Thread rule: any thread.
#pragma once

#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/URL.h"

namespace host {

// The fields of a form or of a query (application/x-www-form-urlencoded), decoded:
// "grant_type=refresh_token, refresh_token={length = 120}". Secrets among them are remembered (see
// Secrets.h), so that an answer which echoes one is not shown either.
std::string narratedFields(std::string_view fields);

// Scheme, host, port and path, and the fields of the query, if there is one. A fragment is not
// shown.
std::string narratedURL(const qvr::URL& url);

// The members of a JSON object; what the text is, if it is none. Secrets are remembered.
std::string narratedJSON(std::string_view text);

// A text that a server or a user chose, harmless by its name: without control characters, cut to
// some length, and by its length alone if it holds a secret, be it percent-encoded.
std::string narratedValue(std::string_view text);

}  // namespace host
