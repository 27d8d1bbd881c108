#include "src/ports/SecretServiceLockFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace qvr {

namespace {

constexpr const char* kName = "qvr-oauth2-secret-service";

bool isFolder(const std::string& path) {
  struct stat found {};
  return path.starts_with('/') && stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

}  // namespace

std::string secretServiceLockFolder() {
  const std::string user = std::to_string(geteuid());
  const char* const named = std::getenv("XDG_RUNTIME_DIR");
  const std::string usual = "/run/user/" + user;
  if (named != nullptr && isFolder(named)) return std::string(named) + "/" + kName;
  if (isFolder(usual)) return usual + "/" + kName;
  return std::string("/tmp/") + kName + "-" + user;
}

}  // namespace qvr
