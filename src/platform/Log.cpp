#include "src/platform/Log.h"

#include "src/platform/World.h"

namespace qvr {

void logLine(std::string_view text) {
  World::current().log(text);
}

void logError(std::string_view method, const ErrorPtr& error) {
  logLine(std::string(method) + ": " + (error ? error->description() : "(null)"));
}

}  // namespace qvr
