#include "src/platform/Log.h"

#include <algorithm>

#include "src/platform/World.h"

namespace qvr {

void logLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
  World::current().log(text);
}

void logError(std::string_view method, const ErrorPtr& error) {
  logLine(std::string(method) + ": " + (error ? error->description() : "(null)"));
}

}  // namespace qvr
