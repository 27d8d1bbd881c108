// The registrations of this command that lie in the user's folders. Each is a desktop entry and a
// service file of the bus, named by an application identifier, that carry the command's mark.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/DesktopEntry.h"
#include "host/DesktopFolders.h"
#include "host/Failure.h"

namespace host {

struct RegisteredFile {
  std::string path;
  std::optional<std::string> text;  // absent when there is no such file

  bool isOurs() const { return text && markOf(*text); }
};

struct Registration {
  std::string entryName;  // as lists of handlers have it
  RegisteredFile entry;
  RegisteredFile service;

  // What its mark says; kLines without one.
  AddedToList added() const;
};

// The registration of the identifier, whether it is there or not.
std::variant<Registration, Failure> readRegistration(const DesktopFolders& folders,
                                                     const std::string& identifier);

// All that are there, by name.
std::variant<std::vector<Registration>, Failure> readRegistrations(const DesktopFolders& folders);

// The same for where they are only mentioned: none when they cannot be read.
std::vector<Registration> knownRegistrations(const DesktopFolders& folders);

// The most that the mark of any of them says: what the first one made, later ones found.
AddedToList mostAdded(const std::vector<Registration>& registrations);

// The folders in which registrations lie; fails without a home folder.
std::variant<DesktopFolders, Failure> foldersOfRegistrations();

// Has the desktop and the bus look at their files again.
void tellDesktop(const DesktopFolders& folders);

// "a, b and c".
std::string joined(const std::vector<std::string>& texts);

}  // namespace host
