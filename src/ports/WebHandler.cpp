#include "src/ports/WebHandler.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

namespace {

constexpr std::string_view kAssociation = "x-scheme-handler/https=";

std::vector<std::string> foldersIn(const std::string& list, std::string_view suffix) {
  std::vector<std::string> folders;
  for (const std::string_view folder : splitWords(list, ":")) {
    folders.push_back(std::string(folder).append(suffix));
  }
  return folders;
}

// The user's folder and then the system's, as the base directory rules have them.
std::vector<std::string> configurationFolders(const Environment& environment) {
  const std::string home(environment.variable("HOME"));
  return foldersIn(environment.variable("XDG_CONFIG_HOME", home + "/.config") + ":" +
                       environment.variable("XDG_CONFIG_DIRS", "/etc/xdg"),
                   "");
}

std::vector<std::string> applicationFolders(const Environment& environment) {
  const std::string home(environment.variable("HOME"));
  return foldersIn(environment.variable("XDG_DATA_HOME", home + "/.local/share") + ":" +
                       environment.variable("XDG_DATA_DIRS", "/usr/local/share:/usr/share"),
                   "/applications");
}

std::string lowercased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

// A desktop's own list is named for it, in lower case: gnome-mimeapps.list.
std::vector<std::string> listNames(const Environment& environment) {
  std::vector<std::string> names{"mimeapps.list", "defaults.list", "mimeinfo.cache"};
  for (const auto desktop : splitWords(environment.variable("XDG_CURRENT_DESKTOP"), ":")) {
    names.push_back(lowercased(desktop) + "-mimeapps.list");
  }
  return names;
}

// Adds the desktop entries that the list, if it is there, associates with https.
void readList(const std::string& path, std::set<std::string>& entries) {
  std::ifstream list(path);
  bool isRemoval = false;
  for (std::string line; std::getline(list, line);) {
    if (line.starts_with('[')) isRemoval = line.starts_with("[Removed Associations]");
    if (isRemoval || !line.starts_with(kAssociation)) continue;
    const std::string_view names = std::string_view(line).substr(kAssociation.size());
    for (const std::string_view name : splitWords(names, ";\r"))
      entries.emplace(name);
  }
}

std::set<std::string> associatedEntries(const Environment& environment) {
  std::vector<std::string> folders = configurationFolders(environment);
  for (std::string& folder : applicationFolders(environment))
    folders.push_back(std::move(folder));
  std::set<std::string> entries;
  for (const std::string& folder : folders) {
    for (const std::string& name : listNames(environment))
      readList(folder + "/" + name, entries);
  }
  return entries;
}

// The program of a desktop entry: the first word of its Exec line, which may be quoted.
std::string programOf(std::ifstream& entry) {
  constexpr std::string_view kExec = "Exec=";
  for (std::string line; std::getline(entry, line);) {
    if (!line.starts_with(kExec)) continue;
    const std::string command = line.substr(kExec.size());
    const auto words = splitWords(command, command.starts_with('"') ? "\"" : " \t\r");
    return words.empty() ? std::string() : std::string(words.front());
  }
  return {};
}

// An entry named "vendor-app.desktop" may also lie in a subfolder, as "vendor/app.desktop".
bool canRun(const std::string& entry, const Environment& environment) {
  std::string nested = entry;
  std::replace(nested.begin(), nested.end(), '-', '/');
  for (const std::string& folder : applicationFolders(environment)) {
    for (const std::string& name : {entry, nested}) {
      std::ifstream file(folder + "/" + name);
      if (file) return !environment.pathOfProgram(programOf(file)).empty();
    }
  }
  return false;
}

}  // namespace

bool isWebHandlerEvident(const Environment& environment) {
  const std::set<std::string> entries = associatedEntries(environment);
  return std::any_of(entries.begin(), entries.end(),
                     [&](const std::string& entry) { return canRun(entry, environment); });
}

}  // namespace qvr
