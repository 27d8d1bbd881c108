// Replacing a file, all or nothing.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "host/Failure.h"

namespace host {

// What a symbolic link leads to; the path itself when it is none, or leads nowhere.
std::string linkTarget(const std::string& path);

// Writes a file, making its folder when there is none. At any moment the file is the old one or the
// new one, whole, and it is durable on return. A symbolic link stays one.
std::optional<Failure> replaceFile(const std::string& path, std::string_view text,
                                   mode_t mode = 0600);

}  // namespace host
