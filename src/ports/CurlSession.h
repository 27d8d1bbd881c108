// The session behind makeURLSession().
#pragma once

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/CurlSessionCore.h"

namespace qvr {

// As makeURLSession(), with the library from elsewhere.
Ref<URLSession> makeCurlSession(const URLSessionOptions& options, CurlLoader loader);

}  // namespace qvr
