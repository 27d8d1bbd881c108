// Whether the desktop knows a program for web addresses.
#pragma once

#include "src/ports/Environment.h"

namespace qvr {

// True when a desktop entry is associated with https, by the lists of the freedesktop "Association
// between MIME types and applications", and its program is there. Desktops have further places of
// their own, so a false answer says that none is evident, and not that there is none.
bool isWebHandlerEvident(const Environment& environment);

}  // namespace qvr
