// The system calls that the encrypted file keychain makes, as a seam: a test wraps them and fails
// the first, the second, the third..., to see what each failure leaves behind.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qvr {

// Owns an open file and closes it.
class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor();

  int get() const noexcept { return descriptor_; }
  explicit operator bool() const noexcept { return descriptor_ >= 0; }

 private:
  int descriptor_;
};

// Each answers as the call of that name does: a negative result with the reason in errno. `At`
// names are relative to an open directory.
class FileCalls {
 public:
  virtual ~FileCalls() = default;

  virtual int openAt(int directory, const char* name, int flags, mode_t mode);
  virtual int status(int file, struct stat* result);
  virtual int statusAt(int directory, const char* name, struct stat* result);
  virtual ssize_t read(int file, void* bytes, std::size_t size);
  virtual ssize_t write(int file, const void* bytes, std::size_t size);
  virtual int sync(int file);
  virtual int lock(int file, int operation);
  virtual int renameAt(int fromDirectory, const char* from, int toDirectory, const char* to);
  virtual int unlinkAt(int directory, const char* name);
  virtual int makeDirectoryAt(int directory, const char* name, mode_t mode);

  // Appends the names in a directory to `names`.
  virtual int listDirectory(int directory, std::vector<std::string>* names);

  // The calls themselves.
  static FileCalls& system();
};

// What a keychain operation stops with. Thrown inside the keychains only: their operations turn it
// into their result.
struct KeychainFailure {
  std::int32_t status;
};

// The keychain status for a reason in errno.
std::int32_t keychainStatusForErrno(int reason);

// Throws the failure for errno.
[[noreturn]] void failWithErrno();

// Repeats a call that a signal interrupted.
template <class Call>
auto retryingInterrupts(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

// The result of a call that must succeed.
template <class Call>
auto required(Call call) {
  const auto result = retryingInterrupts(call);
  if (result < 0) failWithErrno();
  return result;
}

}  // namespace qvr
