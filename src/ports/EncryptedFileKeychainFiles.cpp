#include "src/ports/EncryptedFileKeychainFiles.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <future>
#include <thread>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "src/ports/Sodium.h"

namespace qvr {

namespace {

constexpr const char* kLockName = ".keychain-lock";

// Where files are written before they get their names: there a killed writer's are found without
// looking through all others.
constexpr const char* kUnfinishedName = ".keychain-unfinished";
constexpr std::string_view kTemporaryPrefix = ".keychain-";
constexpr std::string_view kTemporaryExtension = ".tmp";
constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kOthersMask = 0077;

bool isOpenToOthers(const struct stat& found) {
  return found.st_uid != geteuid() || (found.st_mode & kOthersMask) != 0;
}

// A name that no writer used before, so that even two writers that lock in vain (some network file
// systems pretend to) never write into the same file.
std::string newTemporaryName() {
  initializeSodium();
  std::array<std::uint8_t, 16> random;
  randombytes_buf(random.data(), random.size());
  std::array<char, 2 * random.size() + 1> digits;
  sodium_bin2hex(digits.data(), digits.size(), random.data(), random.size());
  return std::string(kTemporaryPrefix).append(digits.data()).append(kTemporaryExtension);
}

bool isTemporaryName(std::string_view name) {
  return name.starts_with(kTemporaryPrefix) && name.ends_with(kTemporaryExtension);
}

std::vector<std::string> namesIn(FileCalls& calls, const FileDescriptor& directory) {
  std::vector<std::string> found;
  required([&] {
    found.clear();
    return calls.listDirectory(directory.get(), &found);
  });
  return found;
}

// Temporary files are made under the lock only, so whoever holds it owns what is there. One that
// cannot be removed does no harm, and is tried again with the next write.
void removeLeftovers(FileCalls& calls, const FileDescriptor& directory) {
  for (const std::string& name : namesIn(calls, directory)) {
    if (isTemporaryName(name)) calls.unlinkAt(directory.get(), name.c_str());
  }
}

// A new file, removed again unless it was renamed.
class TemporaryFile {
 public:
  TemporaryFile(FileCalls& calls, const FileDescriptor& directory)
      : calls_(calls), directory_(directory), name_(newTemporaryName()) {}
  ~TemporaryFile() {
    if (!renamed_) calls_.unlinkAt(directory_.get(), name_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // On return the content is on disk.
  void write(Bytes content) const {
    const FileDescriptor file(required([&] {
      return calls_.openAt(directory_.get(), name_.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
    }));
    while (!content.empty()) {
      const ssize_t count =
          required([&] { return calls_.write(file.get(), content.data(), content.size()); });
      content = content.subspan(static_cast<std::size_t>(count));
    }
    required([&] { return calls_.sync(file.get()); });
  }

  void rename(const FileDescriptor& directory, const std::string& to) {
    required([&] {
      return calls_.renameAt(directory_.get(), name_.c_str(), directory.get(), to.c_str());
    });
    renamed_ = true;
  }

 private:
  FileCalls& calls_;
  const FileDescriptor& directory_;
  const std::string name_;
  bool renamed_ = false;
};

int openDirectory(FileCalls& calls, int parent, const char* name, int flags) {
  return retryingInterrupts(
      [&] { return calls.openAt(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags, 0); });
}

// A file system that cannot sync a folder (EINVAL) keeps renames in order by itself.
void syncFolder(FileCalls& calls, const FileDescriptor& folder) {
  if (retryingInterrupts([&] { return calls.sync(folder.get()); }) == 0) return;
  if (errno != EINVAL) failWithErrno();
}

void syncParent(FileCalls& calls, const std::string& path) {
  const FileDescriptor parent(openDirectory(calls, AT_FDCWD, parentOfPath(path).c_str(), 0));
  if (!parent) failWithErrno();
  syncFolder(calls, parent);
}

void makeDirectories(FileCalls& calls, const std::string& path) {
  const auto make = [&] { return calls.makeDirectoryAt(AT_FDCWD, path.c_str(), kDirectoryMode); };
  if (make() == 0) return syncParent(calls, path);
  if (errno == EEXIST) return;
  if (errno != ENOENT || path.empty()) failWithErrno();
  makeDirectories(calls, parentOfPath(path));
  if (make() != 0 && errno != EEXIST) failWithErrno();
  syncParent(calls, path);
}

// flock() knows no deadline, so a thread waits in its place. When it comes too late, it gives the
// lock back at once, by dropping the last owner of the file.
void lockWithin(std::shared_ptr<const FileDescriptor> file, std::chrono::milliseconds deadline) {
  std::packaged_task<int()> wait([file = std::move(file)] {
    const int result = retryingInterrupts([&] { return flock(file->get(), LOCK_EX); });
    return result == 0 ? 0 : errno;
  });
  std::future<int> outcome = wait.get_future();
  std::thread(std::move(wait)).detach();
  if (outcome.wait_for(deadline) != std::future_status::ready) {
    throw KeychainFailure{errSecNotAvailable};
  }
  if (const int reason = outcome.get()) throw KeychainFailure{keychainStatusForErrno(reason)};
}

}  // namespace

// Given back by hand rather than by closing alone: a child that another thread is just starting may
// hold a copy of the descriptor.
DirectoryLock::~DirectoryLock() {
  if (file_) flock(file_->get(), LOCK_UN);
}

PrivateDirectory::PrivateDirectory(FileCalls& calls, FileDescriptor directory)
    : calls_(&calls), directory_(std::move(directory)) {
  if (isOpenToOthers(statusOf(directory_))) throw KeychainFailure{errSecAuthFailed};
}

std::optional<PrivateDirectory> PrivateDirectory::open(FileCalls& calls, const std::string& path) {
  FileDescriptor directory(openDirectory(calls, AT_FDCWD, path.c_str(), O_NOFOLLOW));
  if (directory) return PrivateDirectory(calls, std::move(directory));
  if (errno == ENOENT && !path.empty()) return std::nullopt;
  // A symbolic link, or no folder at all: not what this user made for the store.
  if (errno == ELOOP || errno == ENOTDIR) throw KeychainFailure{errSecAuthFailed};
  failWithErrno();
}

PrivateDirectory PrivateDirectory::openOrMake(FileCalls& calls, const std::string& path) {
  if (std::optional<PrivateDirectory> found = open(calls, path)) return std::move(*found);
  makeDirectories(calls, path);
  std::optional<PrivateDirectory> made = open(calls, path);
  if (!made) throw KeychainFailure{errSecIO};
  return std::move(*made);
}

DirectoryLock PrivateDirectory::lock(std::chrono::milliseconds deadline) const {
  auto file = std::make_shared<const FileDescriptor>(required([&] {
    return calls_->openAt(directory_.get(), kLockName,
                          O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, kFileMode);
  }));
  if (retryingInterrupts([&] { return calls_->lock(file->get(), LOCK_EX | LOCK_NB); }) == 0) {
    return DirectoryLock(std::move(file));
  }
  if (errno != EWOULDBLOCK) failWithErrno();
  lockWithin(file, deadline);
  return DirectoryLock(std::move(file));
}

struct stat PrivateDirectory::statusOf(const FileDescriptor& file) const {
  struct stat found {};
  required([&] { return calls_->status(file.get(), &found); });
  return found;
}

// Does not wait for the other end of a pipe that someone put there.
FileDescriptor PrivateDirectory::openToRead(const std::string& name) const {
  return FileDescriptor(retryingInterrupts([&] {
    return calls_->openAt(directory_.get(), name.c_str(),
                          O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0);
  }));
}

std::optional<Data> PrivateDirectory::read(const std::string& name, std::size_t limit) const {
  const FileDescriptor file = openToRead(name);
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file && (errno == ELOOP || errno == ENXIO)) return Data();  // a symbolic link, a socket
  if (!file) failWithErrno();
  const struct stat found = statusOf(file);
  if (!S_ISREG(found.st_mode)) return Data();
  Data content(std::min(limit, static_cast<std::size_t>(found.st_size)));
  content.resize(fill(file, content));
  return content;
}

std::optional<FileDescriptor> PrivateDirectory::openSecret(const std::string& name,
                                                           std::size_t size) const {
  FileDescriptor file = openToRead(name);
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file && errno == ELOOP) throw KeychainFailure{errSecAuthFailed};
  if (!file) failWithErrno();
  const struct stat found = statusOf(file);
  if (isOpenToOthers(found)) throw KeychainFailure{errSecAuthFailed};
  if (!S_ISREG(found.st_mode) || found.st_size != static_cast<off_t>(size)) {
    throw KeychainFailure{errSecInvalidKeychain};
  }
  return file;
}

std::size_t PrivateDirectory::fill(const FileDescriptor& file,
                                   std::span<std::uint8_t> buffer) const {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = required(
        [&] { return calls_->read(file.get(), buffer.data() + filled, buffer.size() - filled); });
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

bool PrivateDirectory::contains(const std::string& name) const {
  struct stat found {};
  const int known =
      retryingInterrupts([&] { return calls_->statusAt(directory_.get(), name.c_str(), &found); });
  if (known == 0) return true;
  if (errno != ENOENT) failWithErrno();
  return false;
}

std::vector<std::string> PrivateDirectory::names() const {
  return namesIn(*calls_, directory_);
}

bool PrivateDirectory::isSameAs(const PrivateDirectory& other) const {
  const struct stat mine = statusOf(directory_);
  const struct stat others = statusOf(other.directory_);
  return mine.st_dev == others.st_dev && mine.st_ino == others.st_ino;
}

void PrivateDirectory::replace(const DirectoryLock&, const std::string& name, Bytes content) const {
  const FileDescriptor unfinished = openUnfinished();
  removeLeftovers(*calls_, unfinished);
  TemporaryFile temporary(*calls_, unfinished);
  temporary.write(content);
  temporary.rename(directory_, name);
  syncDirectory();
}

void PrivateDirectory::remove(const DirectoryLock&, const std::string& name) const {
  if (calls_->unlinkAt(directory_.get(), name.c_str()) != 0) {
    if (errno == ENOENT) throw KeychainFailure{errSecItemNotFound};
    failWithErrno();
  }
  syncDirectory();
}

// Before there was such a folder, unfinished files lay among the finished ones: those are cleared
// away before it is made, and so for good.
FileDescriptor PrivateDirectory::openUnfinished() const {
  const auto open = [&] {
    return openDirectory(*calls_, directory_.get(), kUnfinishedName, O_NOFOLLOW);
  };
  FileDescriptor found(open());
  if (found) return found;
  if (errno != ENOENT) failWithErrno();
  removeLeftovers(*calls_, directory_);
  if (calls_->makeDirectoryAt(directory_.get(), kUnfinishedName, kDirectoryMode) != 0 &&
      errno != EEXIST) {
    failWithErrno();
  }
  return FileDescriptor(required(open));
}

void PrivateDirectory::syncDirectory() const {
  syncFolder(*calls_, directory_);
}

std::string parentOfPath(const std::string& path) {
  const std::size_t lastEnd = path.find_last_not_of('/');
  if (lastEnd == std::string::npos) return path.empty() ? "." : "/";
  const std::size_t slash = path.rfind('/', lastEnd);
  if (slash == std::string::npos) return ".";
  const std::size_t parentEnd = path.find_last_not_of('/', slash);
  return parentEnd == std::string::npos ? "/" : path.substr(0, parentEnd + 1);
}

std::string lastComponentOfPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace qvr
