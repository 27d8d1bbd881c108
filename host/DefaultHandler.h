// Which application the desktop hands the URLs of a scheme to: by the freedesktop "Association
// between MIME types and applications", as desktops and xdg-open follow it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/DesktopFolders.h"

namespace host {

// The desktop entry that gets the scheme's URLs ("mail.desktop"), one named `except` aside; empty
// when there is none. The scheme is in lower case.
std::string defaultHandler(const DesktopFolders& folders, std::string_view scheme,
                           std::string_view except = {});

// The user's list of handlers, and the one of the running desktop that names another entry than
// `entry` for the scheme and comes before it.
std::string handlerListPath(const DesktopFolders& folders);
struct ListedHandler {
  std::string list;   // the file's path
  std::string entry;  // the desktop entry that it names
};
std::optional<ListedHandler> overridingHandler(const DesktopFolders& folders,
                                               std::string_view scheme, std::string_view entry);

}  // namespace host
