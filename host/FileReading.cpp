#include "host/FileReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/Descriptor.h"

namespace host {
namespace {

constexpr std::size_t kLargestFile = 1 << 20;

// Reads to the end, or to more than the largest size. False, with errno set, when that fails.
bool readToEnd(int file, std::string* text) {
  char buffer[16384];
  while (text->size() <= kLargestFile) {
    const ssize_t count = read(file, buffer, sizeof buffer);
    if (count == 0) return true;
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) text->append(buffer, static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

std::variant<std::optional<std::string>, Failure> readSmallFile(const std::string& path) {
  const auto cannotRead = [&path](const char* reason) {
    return Failure{kFailed, "The file " + path + " cannot be read (" + reason + ")."};
  };
  const Descriptor file(
      open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // no wait for a FIFO
  if (!file && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  struct stat status = {};
  if (!file || fstat(file.number(), &status) != 0) return cannotRead(std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return cannotRead("it is not a regular file");
  std::string text;
  if (!readToEnd(file.number(), &text)) return cannotRead(std::strerror(errno));
  if (text.size() > kLargestFile) return cannotRead("it is larger than 1 MiB");
  return text;
}

}  // namespace host
