// Reading a small text file whole.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "host/Failure.h"

namespace host {

// The content of a file; absent when there is none. What is not a regular file, or is larger than
// 1 MiB, is a failure that names it.
std::variant<std::optional<std::string>, Failure> readSmallFile(const std::string& path);

}  // namespace host
