#include "host/FileChanges.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <variant>

#include "host/FileReading.h"
#include "host/FileWriting.h"
#include "host/Paths.h"

namespace host {
namespace {

constexpr mode_t kModeOfNewFiles = 0600;

}  // namespace

FileChanges::~FileChanges() {
  for (auto each = undoing_.rbegin(); each != undoing_.rend(); ++each) {
    if (each->text) {
      replaceFile(each->path, *each->text, each->mode);
    } else {
      std::remove(each->path.c_str());  // a folder only if it is empty
    }
  }
}

std::optional<Failure> FileChanges::write(const std::string& path, std::string_view text) {
  Before before;
  if (auto failure = readBefore(path, &before)) return failure;
  if (before.text == text) return std::nullopt;
  noteMissingFolders(parentFolder(path));
  const mode_t mode = before.mode;
  undoing_.push_back(std::move(before));
  hasChanged_ = true;
  return replaceFile(path, text, mode);
}

std::optional<Failure> FileChanges::requireText(const std::string& path,
                                                const std::optional<std::string>& known) const {
  Before before;
  if (auto failure = readBefore(path, &before)) return failure;
  if (before.text == known) return std::nullopt;
  return Failure{kTryAgainLater,
                 "Another program has just changed " + path + ": run the command again."};
}

std::optional<Failure> FileChanges::remove(const std::string& path) {
  Before before;
  if (auto failure = readBefore(path, &before)) return failure;
  if (!before.text) return std::nullopt;
  if (unlink(path.c_str()) != 0)
    return Failure{kFailed,
                   "The file " + path + " cannot be removed (" + std::strerror(errno) + ")."};
  undoing_.push_back(std::move(before));
  hasChanged_ = true;
  return std::nullopt;
}

std::optional<Failure> FileChanges::readBefore(const std::string& path, Before* before) const {
  auto text = readSmallFile(path);
  if (auto* failure = std::get_if<Failure>(&text)) return *failure;
  struct stat status = {};
  const bool isThere = stat(path.c_str(), &status) == 0;
  *before = {path, std::get<std::optional<std::string>>(std::move(text)),
             isThere ? status.st_mode & 07777 : kModeOfNewFiles};
  return std::nullopt;
}

void FileChanges::noteMissingFolders(const std::string& path) {
  if (path.size() <= 1 || access(path.c_str(), F_OK) == 0) return;
  noteMissingFolders(parentFolder(path));
  undoing_.push_back({path, std::nullopt});
}

}  // namespace host
