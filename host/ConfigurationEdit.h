// Changing one value of the configuration file and nothing else of it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/Failure.h"

namespace host {

// The text of a configuration with keychain.kind set, and every other byte as it was: comments,
// order and line ends. Absent for a text that is not TOML, and for one in which no place for the
// key can be found.
std::optional<std::string> withKeychainKind(std::string_view text, std::string_view kind);

// The same for the file, which keeps its mode and, behind a symbolic link, its place. Whoever calls
// holds the file's lock (ConfigurationLock.h).
std::optional<Failure> writeKeychainKind(const std::string& path, std::string_view kind);

}  // namespace host
