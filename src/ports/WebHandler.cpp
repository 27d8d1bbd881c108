#include "src/ports/WebHandler.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "src/ports/FileCalls.h"

namespace qvr {

namespace {

constexpr std::string_view kAssociation = "x-scheme-handler/https=";

// What a list or an entry has beyond this is not read.
constexpr std::size_t kLargestFile = std::size_t{1} << 20;

// The content of a regular file, and nothing for what would block or never end: a pipe, a device.
std::optional<std::string> contentOf(const std::string& path) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat found {};
  if (!file || fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return std::nullopt;
  std::string content(std::min(kLargestFile, static_cast<std::size_t>(found.st_size)), '\0');
  std::size_t filled = 0;
  while (filled < content.size()) {
    const ssize_t count = retryingInterrupts(
        [&] { return read(file.get(), content.data() + filled, content.size() - filled); });
    if (count <= 0) break;
    filled += static_cast<std::size_t>(count);
  }
  content.resize(filled);
  return content;
}

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

// Whether the name stays in the folders of desktop entries; a "-" may stand for a "/" in it.
bool isEntryName(std::string_view name) {
  return name.find('/') == name.npos && name.find("..") == name.npos;
}

// Adds the desktop entries that the list, if it is there, associates with https.
void readList(const std::string& path, std::set<std::string>& entries) {
  const std::string list = contentOf(path).value_or("");
  bool isRemoval = false;
  for (const std::string_view line : splitWords(list, "\n")) {
    if (line.starts_with('[')) isRemoval = line.starts_with("[Removed Associations]");
    if (isRemoval || !line.starts_with(kAssociation)) continue;
    for (const std::string_view name : splitWords(line.substr(kAssociation.size()), ";\r")) {
      if (isEntryName(name)) entries.emplace(name);
    }
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
std::string programOf(const std::string& entry) {
  constexpr std::string_view kExec = "Exec=";
  for (const std::string_view line : splitWords(entry, "\n")) {
    if (!line.starts_with(kExec)) continue;
    const std::string_view command = line.substr(kExec.size());
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
      const std::optional<std::string> content = contentOf(folder + "/" + name);
      if (content) return !environment.pathOfProgram(programOf(*content)).empty();
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
