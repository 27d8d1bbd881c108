// The two files by which a freedesktop desktop finds the command for a redirect: the desktop entry,
// which names the schemes and the program, and the service file, by which the session bus starts
// it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// What `register` had to make of the user's list of handlers, and `unregister` takes away again.
enum class AddedToList { kLines, kGroup, kFile };

struct DesktopEntry {
  std::string identifier;            // of the application: the files' name, and the bus name
  std::string name;                  // what a browser calls it when it asks before it hands over
  std::string program;               // its absolute path
  std::vector<std::string> schemes;  // in lower case
  AddedToList added = AddedToList::kLines;
};

std::string desktopEntryText(const DesktopEntry& entry);
std::string busServiceText(const DesktopEntry& entry);

// What the mark in either of the texts says; absent for a file that is not `register`'s.
std::optional<AddedToList> markOf(std::string_view text);

// The type that stands for a scheme: "x-scheme-handler/SCHEME".
std::string typeOfScheme(std::string_view scheme);

}  // namespace host
