#include "host/DefaultHandler.h"

#include <unistd.h>

#include <algorithm>
#include <variant>
#include <vector>

#include "host/DesktopEntry.h"
#include "host/FileReading.h"
#include "host/HandlerList.h"

namespace host {
namespace {

constexpr const char* kListName = "mimeapps.list";

// A file that cannot be read says nothing about handlers.
std::string contentOf(const std::string& path) {
  const auto text = readSmallFile(path);
  const auto* content = std::get_if<std::optional<std::string>>(&text);
  return content == nullptr ? "" : content->value_or("");
}

std::vector<std::string> joined(std::string first, const std::vector<std::string>& others) {
  std::vector<std::string> all{std::move(first)};
  all.insert(all.end(), others.begin(), others.end());
  return all;
}

std::vector<std::string> applicationFolders(const DesktopFolders& folders) {
  return joined(folders.applications, folders.applicationsOfAll);
}

// The lists of choices in a folder; those of the running desktop come first.
std::vector<std::string> listsOfDesktops(const DesktopFolders& folders, const std::string& folder) {
  std::vector<std::string> lists;
  for (const std::string& desktop : folders.desktops)
    lists.push_back(folder + "/" + desktop + "-" + kListName);
  return lists;
}

std::vector<std::string> allLists(const DesktopFolders& folders) {
  std::vector<std::string> places = joined(folders.settings, folders.settingsOfAll);
  for (const std::string& folder : applicationFolders(folders))
    places.push_back(folder);
  std::vector<std::string> lists;
  for (const std::string& place : places) {
    for (const std::string& list : listsOfDesktops(folders, place))
      lists.push_back(list);
    lists.push_back(place + "/" + kListName);
  }
  return lists;
}

// "folder-mail.desktop" may lie at folder/mail.desktop.
bool isInstalled(const DesktopFolders& folders, const std::string& entry) {
  std::string below = entry;
  const std::size_t hyphen = below.find('-');
  if (hyphen != std::string::npos) below[hyphen] = '/';
  const std::vector<std::string> places = applicationFolders(folders);
  return std::any_of(places.begin(), places.end(), [&](const std::string& place) {
    return access((place + "/" + entry).c_str(), F_OK) == 0 ||
           access((place + "/" + below).c_str(), F_OK) == 0;
  });
}

// What the installed entries say of themselves, collected by update-desktop-database: the same form
// under another name of the group.
std::vector<std::string> associatedEntries(const std::string& folder, std::string_view type) {
  std::string cache = contentOf(folder + "/mimeinfo.cache");
  constexpr std::string_view kHeader = "[MIME Cache]";
  const std::size_t header = cache.find(kHeader);
  if (header == std::string::npos) return {};
  cache.replace(header, kHeader.size(), "[Default Applications]");
  return HandlerList(cache).handlers(type);
}

}  // namespace

std::string handlerListPath(const DesktopFolders& folders) {
  return folders.settings + "/" + kListName;
}

std::string defaultHandler(const DesktopFolders& folders, std::string_view scheme,
                           std::string_view except) {
  const std::string type = typeOfScheme(scheme);
  const auto counts = [&](const std::string& entry) {
    return entry != except && isInstalled(folders, entry);
  };
  const auto firstOf = [&](const std::vector<std::string>& entries) {
    const auto entry = std::find_if(entries.begin(), entries.end(), counts);
    return entry == entries.end() ? std::string() : *entry;
  };
  for (const std::string& list : allLists(folders)) {
    std::string entry = firstOf(HandlerList(contentOf(list)).handlers(type));
    if (!entry.empty()) return entry;
  }
  for (const std::string& folder : applicationFolders(folders)) {
    std::string entry = firstOf(associatedEntries(folder, type));
    if (!entry.empty()) return entry;
  }
  return "";
}

std::optional<ListedHandler> overridingHandler(const DesktopFolders& folders,
                                               std::string_view scheme, std::string_view entry) {
  for (const std::string& list : listsOfDesktops(folders, folders.settings)) {
    const auto entries = HandlerList(contentOf(list)).handlers(typeOfScheme(scheme));
    if (entries.empty()) continue;
    if (entries.front() == entry) return std::nullopt;
    return ListedHandler{list, entries.front()};
  }
  return std::nullopt;
}

}  // namespace host
