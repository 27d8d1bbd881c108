#include "host/EmptyFolders.h"

#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <variant>

#include "host/FileReading.h"
#include "host/Paths.h"

namespace host {
namespace {

// A folder that cannot be searched to its end may have one.
bool hasDesktopEntry(const std::string& folder) {
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator file(folder, error), end;
       !error && file != end; file.increment(error)) {
    if (file->path().extension() == ".desktop") return true;
  }
  return static_cast<bool>(error);
}

bool listsNothing(const std::string& cache) {
  const auto text = readSmallFile(cache);
  const auto* const content = std::get_if<std::optional<std::string>>(&text);
  return content != nullptr && *content == "[MIME Cache]\n";
}

}  // namespace

void removeEmptyFolders(const DesktopFolders& folders) {
  const std::string cache = folders.applications + "/mimeinfo.cache";
  if (listsNothing(cache) && !hasDesktopEntry(folders.applications)) unlink(cache.c_str());
  for (const std::string& folder :
       {folders.applications, folders.busServices, parentFolder(folders.busServices)})
    rmdir(folder.c_str());  // only if it is empty
}

}  // namespace host
