// The session behind makeURLSession().
//
// A connection is kept for the next request. When such a one turns out to be dead before a whole
// header line of the answer has come, libcurl sends the request once more on a fresh connection,
// and says so in its trace alone: to the task both are one request. Only an option that gives up
// keeping connections (CURLOPT_FRESH_CONNECT) would prevent it. The first request of a session is
// never repeated so.
#pragma once

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/CurlSessionCore.h"

namespace qvr {

// As makeURLSession(), with the library from elsewhere.
Ref<URLSession> makeCurlSession(const URLSessionOptions& options, CurlLoader loader);

}  // namespace qvr
