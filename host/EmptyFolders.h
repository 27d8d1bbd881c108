// What a registration leaves behind in the user's folders without having written it.
#pragma once

#include "host/DesktopFolders.h"

namespace host {

// Removes the cache that update-desktop-database made, if it lists nothing and has nothing to list,
// and then the folders of registrations as far as they are empty.
void removeEmptyFolders(const DesktopFolders& folders);

}  // namespace host
