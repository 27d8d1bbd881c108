// File calls of which one fails: the first, the second, the third...
#pragma once

#include <algorithm>
#include <cerrno>
#include <string>

#include "src/ports/FileCalls.h"

namespace ports_test {

class FaultyFileCalls final : public qvr::FileCalls {
 public:
  // Fails the call of this number (1 is the first), once, with this reason.
  FaultyFileCalls(int number, int reason) : number_(number), reason_(reason) {}

  // What failed; empty when there were fewer calls.
  const std::string& failed() const { return failed_; }

  int openAt(int directory, const char* name, int flags, mode_t mode) override {
    return fails("openAt") ? -1 : FileCalls::openAt(directory, name, flags, mode);
  }
  int status(int file, struct stat* result) override {
    return fails("status") ? -1 : FileCalls::status(file, result);
  }
  int statusAt(int directory, const char* name, struct stat* result) override {
    return fails("statusAt") ? -1 : FileCalls::statusAt(directory, name, result);
  }
  ssize_t read(int file, void* bytes, std::size_t size) override {
    return fails("read") ? -1 : FileCalls::read(file, bytes, size);
  }
  // Takes a part at a time, as a nearly full disk does.
  ssize_t write(int file, const void* bytes, std::size_t size) override {
    constexpr std::size_t kPart = 120;
    return fails("write") ? -1 : FileCalls::write(file, bytes, std::min(size, kPart));
  }
  int sync(int file) override { return fails("sync") ? -1 : FileCalls::sync(file); }
  int lock(int file, int operation) override {
    return fails("lock") ? -1 : FileCalls::lock(file, operation);
  }
  int renameAt(int fromDirectory, const char* from, int toDirectory, const char* to) override {
    return fails("renameAt") ? -1 : FileCalls::renameAt(fromDirectory, from, toDirectory, to);
  }
  int unlinkAt(int directory, const char* name) override {
    return fails("unlinkAt") ? -1 : FileCalls::unlinkAt(directory, name);
  }
  int makeDirectoryAt(int directory, const char* name, mode_t mode) override {
    return fails("makeDirectoryAt") ? -1 : FileCalls::makeDirectoryAt(directory, name, mode);
  }
  int listDirectory(int directory, std::vector<std::string>* names) override {
    return fails("listDirectory") ? -1 : FileCalls::listDirectory(directory, names);
  }

 private:
  bool fails(const char* call) {
    if (++made_ != number_) return false;
    failed_ = call;
    errno = reason_;
    return true;
  }

  const int number_;
  const int reason_;
  int made_ = 0;
  std::string failed_;
};

}  // namespace ports_test
