// How the path of a redirect is compared with the one that was registered.
#pragma once

#include "QVROAuth2Client/platform/Text.h"

// equalHTTPPaths
// True when both paths are the root (absent, empty or "/"), or when they are exactly equal.
bool equalHTTPPaths(qvr::TextView path, qvr::TextView expected);
