// An advisory lock (flock) on a file that stays where it is: a lock on a file that has lost its
// name would keep nobody out.
//
// The kernel gives it back however the process ends, so that none is ever stale. On a file system
// without locks it stands for nothing: it guards against a coincidence, and is no reason to shut
// anybody out.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/Descriptor.h"

namespace host {

// Opens the file of a lock, and makes it, for the user alone, when it is not there; no symbolic
// link is followed. It is empty and stays so, and is open for writing where it can be, since some
// network file systems give no lock otherwise. On failure errno tells why.
Descriptor openLockFile(const std::string& path);

class FileLock {
 public:
  enum class Kind {
    kShared,     // beside others
    kExclusive,  // alone
  };

  // Locks the open file, which is then the lock's own. Waits until no other process holds what
  // contradicts it; absent at the deadline, or at the command's own (see Deadline.h).
  static std::optional<FileLock> acquire(Descriptor file, Kind kind,
                                         std::chrono::milliseconds deadline);

  // Holds nothing.
  FileLock() = default;

  // False when the file has lost its name since it was opened: others then lock another file.
  bool isAt(const std::string& path) const;

 private:
  explicit FileLock(Descriptor file);

  Descriptor file_;
};

}  // namespace host
