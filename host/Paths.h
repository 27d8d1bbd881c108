// The user's folders, as the XDG base directory rules place them.
//
// Thread rule: any thread, while nobody changes the environment.
#pragma once

#include <optional>
#include <string>

#include "host/Failure.h"

namespace host {

// "qvr-oauth2" below $XDG_CONFIG_HOME (default ~/.config) and below $XDG_DATA_HOME (default
// ~/.local/share). A variable that is empty or relative counts as unset. Absent when the home
// folder is not known either. Nothing is created.
std::optional<std::string> configurationFolder();
std::optional<std::string> dataFolder();

// "qvr-oauth2" below $XDG_RUNTIME_DIR. Where that is unset, as in a cron job, below /run/user/UID,
// which it names in a session of the same user, if that is there; else "qvr-oauth2-UID" below /tmp.
std::string runtimeFolder();

// Makes the folder, and the missing ones above it, with mode 0700.
std::optional<Failure> makeFolder(const std::string& path);

// The same; the folder must then be a real one (no symbolic link), the user's own, and closed to
// others. The failure says which it is not.
std::optional<Failure> makePrivateFolder(const std::string& path);

// Why a folder that is there is not private in this sense. A missing one has no problem.
std::optional<Failure> privateFolderProblem(const std::string& path);

// `path` if it is absolute, else `path` below `folder`.
std::string resolved(const std::string& path, const std::string& folder);

// The folder that holds the file: everything before the last "/", or ".".
std::string parentFolder(const std::string& path);

}  // namespace host
