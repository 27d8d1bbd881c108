// Functions looked up in a library that is loaded on first use.
#pragma once

#include <dlfcn.h>

#include <string>

namespace qvr {

// Loads a library that then stays until the process ends. Null when that fails; *problem then says
// why.
inline void* loadLibrary(const char* fileName, std::string* problem) {
  void* const library = ::dlopen(fileName, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) *problem = ::dlerror();
  return library;
}

// Null when the library has no such function.
template <class Function>
Function* librarySymbol(void* library, const char* name) {
  return reinterpret_cast<Function*>(::dlsym(library, name));
}

// Looks functions up and keeps the name of the first that is not there.
class LibraryBinder {
 public:
  explicit LibraryBinder(void* library) : library_(library) {}

  template <class Function>
  void bind(Function*& function, const char* name) {
    function = librarySymbol<Function>(library_, name);
    if (function == nullptr && missing_.empty()) missing_ = name;
  }

  const std::string& missing() const { return missing_; }

 private:
  void* const library_;
  std::string missing_;
};

}  // namespace qvr
