#include "src/ports/BusLibrary.h"

#include "src/ports/SharedLibrary.h"

namespace qvr {
namespace {

// Empty when all went well.
std::string load(BusLibrary& bus, const char* fileName) {
  std::string problem;
  void* const library = loadLibrary(fileName, &problem);
  if (library == nullptr) return problem;
  LibraryBinder binder(library);
#define QVR_BIND_BUS_FUNCTION(name) binder.bind(bus.name, #name);
  QVR_BUS_FUNCTIONS(QVR_BIND_BUS_FUNCTION)
#undef QVR_BIND_BUS_FUNCTION
  if (binder.missing().empty()) return {};
  return std::string(fileName) + " has no function " + binder.missing();
}

}  // namespace

BusLibrary BusLibrary::open(const char* fileName) {
  BusLibrary bus;
  bus.problem = load(bus, fileName);
  return bus;
}

const BusLibrary& BusLibrary::shared() {
  // Never destroyed: a connection may still be in use while the process exits.
  static const BusLibrary& library = *new BusLibrary(open("libsystemd.so.0"));
  return library;
}

}  // namespace qvr
