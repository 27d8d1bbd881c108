// The folder of the encrypted file keychain: private to its owner, written atomically and durably,
// and by one writer at a time.
//
// Everything fails by throwing KeychainFailure. Files are opened relative to the folder's own
// descriptor and no symbolic link is followed, so what was checked is what is used.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Text.h"
#include "src/ports/ByteFields.h"
#include "src/ports/FileCalls.h"

namespace qvr {

// The right to change a folder. Given back by the destructor, or by the kernel when the process
// ends in whatever way.
class DirectoryLock {
 public:
  explicit DirectoryLock(std::shared_ptr<const FileDescriptor> file) : file_(std::move(file)) {}
  DirectoryLock(DirectoryLock&&) = default;
  ~DirectoryLock();

 private:
  std::shared_ptr<const FileDescriptor> file_;
};

class PrivateDirectory {
 public:
  // The folder at the path; nothing when there is none. Fails with errSecAuthFailed when it is a
  // symbolic link, is another user's, or when others have any access to it.
  static std::optional<PrivateDirectory> open(FileCalls& calls, const std::string& path);

  // The same, made with mode 0700 when it is missing, as are its parents.
  static PrivateDirectory openOrMake(FileCalls& calls, const std::string& path);

  // Waits for the writers before this one, in threads and other processes. Fails with
  // errSecNotAvailable when they are not done within the deadline.
  DirectoryLock lock(std::chrono::milliseconds deadline) const;

  // At most the first `limit` bytes of a file; nothing when there is none of this name. What is
  // there but is no regular file reads as no bytes, which no format accepts.
  std::optional<Data> read(const std::string& name, std::size_t limit) const;

  // Opens a file that must be the user's own and closed to others (errSecAuthFailed), and of
  // exactly this size (errSecInvalidKeychain). Nothing when there is none of this name.
  std::optional<FileDescriptor> openSecret(const std::string& name, std::size_t size) const;

  // Fills the buffer from an open file, as far as that goes; returns the number of bytes.
  std::size_t fill(const FileDescriptor& file, std::span<std::uint8_t> buffer) const;

  bool contains(const std::string& name) const;
  std::vector<std::string> names() const;

  // True when both are the same folder.
  bool isSameAs(const PrivateDirectory& other) const;

  // Writes a file whole, in place of one of this name. Whatever happens, the name means the old
  // content or the new; on return the new one is on disk. Also clears away what writers that were
  // killed have left, at a cost that does not grow with the files in the folder.
  void replace(const DirectoryLock& lock, const std::string& name, Bytes content) const;

  void remove(const DirectoryLock& lock, const std::string& name) const;

 private:
  PrivateDirectory(FileCalls& calls, FileDescriptor directory);
  struct stat statusOf(const FileDescriptor& file) const;
  FileDescriptor openToRead(const std::string& name) const;
  FileDescriptor openUnfinished() const;
  void syncDirectory() const;

  FileCalls* calls_;
  FileDescriptor directory_;
};

// The path of the folder that a path's last component lies in, and that component.
std::string parentOfPath(const std::string& path);
std::string lastComponentOfPath(const std::string& path);

}  // namespace qvr
