// Reading and filling the messages of a Secret Service, as its fake does; what does not fit throws.
#pragma once

#include <systemd/sd-bus.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/FakeSecretService.h"

namespace support {

// The result of a call of sd-bus that must not fail.
void check(int result);

void appendPaths(sd_bus_message* message, const std::vector<std::string>& paths);
void appendAttributes(sd_bus_message* message,
                      const std::map<std::string, std::string>& attributes);
std::map<std::string, std::string> readAttributes(sd_bus_message* message);

// Reads a secret structure into an item; false when its session is none of `sessions`.
bool readSecret(sd_bus_message* message, const std::set<std::string>& sessions,
                FakeKeyring::Item* item);

// An item with the label and the attributes that CreateItem names.
FakeKeyring::Item readProperties(sd_bus_message* message);

}  // namespace support
