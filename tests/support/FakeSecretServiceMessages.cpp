#include "tests/support/FakeSecretServiceMessages.h"

#include <stdexcept>
#include <string_view>

namespace support {

void check(int result) {
  if (result < 0) throw std::runtime_error("the fake Secret Service met a malformed message");
}

void appendPaths(sd_bus_message* message, const std::vector<std::string>& paths) {
  check(sd_bus_message_open_container(message, 'a', "o"));
  for (const std::string& path : paths)
    check(sd_bus_message_append(message, "o", path.c_str()));
  check(sd_bus_message_close_container(message));
}

std::map<std::string, std::string> readAttributes(sd_bus_message* message) {
  std::map<std::string, std::string> attributes;
  check(sd_bus_message_enter_container(message, 'a', "{ss}"));
  const char* name = nullptr;
  const char* value = nullptr;
  while (sd_bus_message_read(message, "{ss}", &name, &value) > 0)
    attributes[name] = value;
  check(sd_bus_message_exit_container(message));
  return attributes;
}

void appendAttributes(sd_bus_message* message,
                      const std::map<std::string, std::string>& attributes) {
  check(sd_bus_message_open_container(message, 'a', "{ss}"));
  for (const auto& [name, value] : attributes)
    check(sd_bus_message_append(message, "{ss}", name.c_str(), value.c_str()));
  check(sd_bus_message_close_container(message));
}

bool readSecret(sd_bus_message* message, const std::set<std::string>& sessions,
                FakeKeyring::Item* item) {
  const char* session = nullptr;
  const char* contentType = nullptr;
  const void* bytes = nullptr;
  std::size_t size = 0;
  check(sd_bus_message_enter_container(message, 'r', "oayays"));
  check(sd_bus_message_read(message, "o", &session));
  check(sd_bus_message_skip(message, "ay"));
  check(sd_bus_message_read_array(message, 'y', &bytes, &size));
  check(sd_bus_message_read(message, "s", &contentType));
  check(sd_bus_message_exit_container(message));
  item->secret.assign(static_cast<const char*>(bytes), size);
  item->contentType = contentType;
  return sessions.contains(session);
}

FakeKeyring::Item readProperties(sd_bus_message* message) {
  FakeKeyring::Item item;
  check(sd_bus_message_enter_container(message, 'a', "{sv}"));
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    const char* name = nullptr;
    check(sd_bus_message_read(message, "s", &name));
    const bool isLabel = std::string_view(name) == "org.freedesktop.Secret.Item.Label";
    check(sd_bus_message_enter_container(message, 'v', isLabel ? "s" : "a{ss}"));
    const char* label = nullptr;
    if (isLabel) {
      check(sd_bus_message_read(message, "s", &label));
      item.label = label;
    } else {
      item.attributes = readAttributes(message);
    }
    check(sd_bus_message_exit_container(message));
    check(sd_bus_message_exit_container(message));
  }
  check(sd_bus_message_exit_container(message));
  return item;
}

}  // namespace support
