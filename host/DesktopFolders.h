// Where a freedesktop desktop keeps what it knows of applications, most important folder first.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

struct DesktopFolders {
  std::string settings;                        // $XDG_CONFIG_HOME
  std::vector<std::string> settingsOfAll;      // $XDG_CONFIG_DIRS
  std::string applications;                    // "applications" below $XDG_DATA_HOME
  std::vector<std::string> applicationsOfAll;  // the same below $XDG_DATA_DIRS
  std::string busServices;                     // "dbus-1/services" below $XDG_DATA_HOME
  std::vector<std::string> desktops;           // $XDG_CURRENT_DESKTOP, in lower case
};

// As the environment has them now; absent without a home folder.
std::optional<DesktopFolders> desktopFolders();

}  // namespace host
