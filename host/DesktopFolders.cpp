#include "host/DesktopFolders.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "host/Paths.h"

namespace host {
namespace {

std::vector<std::string> listFromEnvironment(const char* variable, const char* otherwise) {
  const char* const value = std::getenv(variable);
  std::istringstream list(value != nullptr && value[0] != '\0' ? value : otherwise);
  std::vector<std::string> names;
  for (std::string name; std::getline(list, name, ':');) {
    if (!name.empty()) names.push_back(name);
  }
  return names;
}

}  // namespace

std::optional<DesktopFolders> desktopFolders() {
  const auto settings = configurationFolder();
  const auto data = dataFolder();
  if (!settings || !data) return std::nullopt;
  DesktopFolders folders;
  folders.settings = parentFolder(*settings);
  folders.applications = parentFolder(*data) + "/applications";
  folders.busServices = parentFolder(*data) + "/dbus-1/services";
  folders.settingsOfAll = listFromEnvironment("XDG_CONFIG_DIRS", "/etc/xdg");
  for (const std::string& folder :
       listFromEnvironment("XDG_DATA_DIRS", "/usr/local/share:/usr/share"))
    folders.applicationsOfAll.push_back(folder + "/applications");
  for (std::string desktop : listFromEnvironment("XDG_CURRENT_DESKTOP", "")) {
    std::transform(desktop.begin(), desktop.end(), desktop.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    folders.desktops.push_back(desktop);
  }
  return folders;
}

}  // namespace host
