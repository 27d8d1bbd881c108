#include "src/ports/Environment.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace qvr {

namespace {

constexpr std::string_view kDefaultPath = "/usr/local/bin:/usr/bin:/bin";

bool isVariable(std::string_view entry, std::string_view name) {
  return entry.starts_with(name) && entry.substr(name.size()).starts_with('=');
}

bool isProgram(const std::string& path) {
  struct stat found {};
  return stat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::vector<std::string_view> splitWords(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> parts;
  std::size_t start = text.find_first_not_of(separators);
  while (start != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(separators, start), text.size());
    parts.push_back(text.substr(start, end - start));
    start = text.find_first_not_of(separators, end);
  }
  return parts;
}

Environment Environment::ofThisProcess() {
  std::vector<std::string> entries;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    entries.emplace_back(*entry);
  return Environment(std::move(entries));
}

std::string_view Environment::variable(std::string_view name) const {
  for (const std::string_view entry : entries_) {
    if (isVariable(entry, name)) return entry.substr(name.size() + 1);
  }
  return {};
}

std::string Environment::variable(std::string_view name, std::string_view otherwise) const {
  const std::string_view value = variable(name);
  return std::string(value.empty() ? otherwise : value);
}

Environment Environment::with(std::string_view name, std::string_view value) const {
  std::vector<std::string> entries = entries_;
  std::erase_if(entries, [&](const std::string& entry) { return isVariable(entry, name); });
  entries.push_back(std::string(name).append("=").append(value));
  return Environment(std::move(entries));
}

std::string Environment::pathOfProgram(std::string_view name) const {
  if (name.find('/') != std::string_view::npos) {
    std::string path(name);
    return isProgram(path) ? path : std::string();
  }
  const std::string path = variable("PATH", kDefaultPath);
  for (const std::string_view folder : splitWords(path, ":")) {
    if (!folder.starts_with('/')) continue;
    std::string candidate = std::string(folder).append("/").append(name);
    if (isProgram(candidate)) return candidate;
  }
  return {};
}

}  // namespace qvr
