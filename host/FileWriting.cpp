#include "host/FileWriting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "host/Descriptor.h"
#include "host/Paths.h"

namespace host {
namespace {

Failure cannotWrite(const std::string& path) {
  return {kFailed, "The file " + path + " cannot be written (" + std::strerror(errno) +
                       "): check the permissions of its folder and the room on the disk."};
}

bool writeAndSync(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return fsync(file) == 0;
}

bool syncFolder(const std::string& folder) {
  const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return descriptor && fsync(descriptor.number()) == 0;
}

}  // namespace

std::string linkTarget(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  return real ? real.get() : path;
}

std::optional<Failure> replaceFile(const std::string& path, std::string_view text, mode_t mode) {
  const std::string file = linkTarget(path);
  const std::string folder = parentFolder(file);
  if (auto failure = makeFolder(folder)) return failure;
  std::string temporary = file + ".XXXXXX";
  const Descriptor descriptor(mkostemp(temporary.data(), O_CLOEXEC));  // with mode 0600
  if (!descriptor) return cannotWrite(file);
  if (fchmod(descriptor.number(), mode) == 0 && writeAndSync(descriptor.number(), text) &&
      rename(temporary.c_str(), file.c_str()) == 0 && syncFolder(folder)) {
    return std::nullopt;
  }
  const Failure failure = cannotWrite(file);
  unlink(temporary.c_str());
  return failure;
}

}  // namespace host
