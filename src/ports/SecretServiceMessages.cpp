#include "src/ports/SecretServiceMessages.h"

namespace qvr {

std::string readPath(const BusMessage& message) {
  const char* path = nullptr;
  readFrom(message, "o", &path);
  return path;
}

std::vector<std::string> readPaths(const BusMessage& message) {
  std::vector<std::string> paths;
  readContainer(message, 'a', "o", [&] {
    while (requireFit(BusLibrary::shared().sd_bus_message_at_end(message.get(), 0)) == 0)
      paths.push_back(readPath(message));
  });
  return paths;
}

std::map<std::string, std::string> readAttributes(const BusMessage& message) {
  std::map<std::string, std::string> attributes;
  const auto readAttribute = [&] {
    const char* name = nullptr;
    const char* value = nullptr;
    readFrom(message, "ss", &name, &value);
    attributes.insert_or_assign(name, value);
  };
  readContainer(message, 'a', "{ss}", [&] {
    while (readContainer(message, 'e', "ss", readAttribute)) {
    }
  });
  return attributes;
}

void appendPaths(const BusMessage& message, const std::vector<std::string>& paths) {
  const BusLibrary& bus = BusLibrary::shared();
  requireFit(bus.sd_bus_message_open_container(message.get(), 'a', "o"));
  for (const std::string& path : paths)
    appendTo(message, "o", path.c_str());
  requireFit(bus.sd_bus_message_close_container(message.get()));
}

}  // namespace qvr
