// Reading and filling bus messages; what does not fit throws malformedAnswer().
#pragma once

#include <map>
#include <string>
#include <vector>

#include "src/ports/BusConnection.h"
#include "src/ports/BusLibrary.h"
#include "src/ports/SecretServiceErrors.h"

namespace qvr {

// The result of a call of sd-bus that must not fail.
inline int requireFit(int result) {
  if (result < 0) throw malformedAnswer();
  return result;
}

template <class... Values>
void appendTo(const BusMessage& message, const char* types, Values... values) {
  requireFit(BusLibrary::shared().sd_bus_message_append(message.get(), types, values...));
}

// Reads values of basic types.
template <class... Places>
void readFrom(const BusMessage& message, const char* types, Places*... places) {
  if (requireFit(BusLibrary::shared().sd_bus_message_read(message.get(), types, places...)) == 0) {
    throw malformedAnswer();
  }
}

// Calls `readContent` inside a container; false at the end of the array that it would be in.
template <class ReadContent>
bool readContainer(const BusMessage& message, char type, const char* content,
                   const ReadContent& readContent) {
  const BusLibrary& bus = BusLibrary::shared();
  if (requireFit(bus.sd_bus_message_enter_container(message.get(), type, content)) == 0) {
    return false;
  }
  readContent();
  requireFit(bus.sd_bus_message_exit_container(message.get()));
  return true;
}

std::string readPath(const BusMessage& message);
std::vector<std::string> readPaths(const BusMessage& message);
std::map<std::string, std::string> readAttributes(const BusMessage& message);
void appendPaths(const BusMessage& message, const std::vector<std::string>& paths);

}  // namespace qvr
