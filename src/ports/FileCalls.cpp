#include "src/ports/FileCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "QVROAuth2Client/platform/KeychainItems.h"

namespace qvr {

FileDescriptor::~FileDescriptor() {
  if (descriptor_ >= 0) close(descriptor_);
}

int FileCalls::openAt(int directory, const char* name, int flags, mode_t mode) {
  return openat(directory, name, flags, mode);
}

int FileCalls::status(int file, struct stat* result) {
  return fstat(file, result);
}

int FileCalls::statusAt(int directory, const char* name, struct stat* result) {
  return fstatat(directory, name, result, AT_SYMLINK_NOFOLLOW);
}

ssize_t FileCalls::read(int file, void* bytes, std::size_t size) {
  return ::read(file, bytes, size);
}

ssize_t FileCalls::write(int file, const void* bytes, std::size_t size) {
  return ::write(file, bytes, size);
}

int FileCalls::sync(int file) {
  return fsync(file);
}

int FileCalls::lock(int file, int operation) {
  return flock(file, operation);
}

int FileCalls::renameAt(int fromDirectory, const char* from, int toDirectory, const char* to) {
  return renameat(fromDirectory, from, toDirectory, to);
}

int FileCalls::unlinkAt(int directory, const char* name) {
  return unlinkat(directory, name, 0);
}

int FileCalls::makeDirectoryAt(int directory, const char* name, mode_t mode) {
  return mkdirat(directory, name, mode);
}

int FileCalls::listDirectory(int directory, std::vector<std::string>* names) {
  // A reading position of its own: the caller's descriptor may be in use on another thread.
  const int own = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (own < 0) return -1;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(own), closedir);
  if (!stream) {
    const FileDescriptor closesIt(own);
    return -1;
  }
  errno = 0;
  while (const dirent* const entry = readdir(stream.get())) {
    names->emplace_back(entry->d_name);
  }
  return errno == 0 ? 0 : -1;
}

FileCalls& FileCalls::system() {
  static FileCalls calls;
  return calls;
}

std::int32_t keychainStatusForErrno(int reason) {
  switch (reason) {
    case ENOSPC:
    case EDQUOT:
      return errSecDiskFull;
    case EACCES:
    case EPERM:
    case EROFS:
      return errSecWrPerm;
    case ENOMEM:
      return errSecAllocate;
    default:
      return errSecIO;
  }
}

void failWithErrno() {
  throw KeychainFailure{keychainStatusForErrno(errno)};
}

}  // namespace qvr
