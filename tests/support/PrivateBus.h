// A D-Bus message bus of a test's own: nothing is on it but what the test puts there, and no
// service of the machine is started by it.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "tests/support/ChildProcess.h"

namespace support {

class PrivateBus {
 public:
  // `serviceFolder`, unless empty, holds the .service files of what the bus starts on demand;
  // `environment` is added to, or replaces, what that is given of this process's own.
  explicit PrivateBus(const std::string& serviceFolder = {},
                      std::map<std::string, std::string> environment = {});

  // As DBUS_SESSION_BUS_ADDRESS has it.
  const std::string& address() const { return address_; }

  // Ends the bus as a crash does, and everybody's connection with it.
  void crash();

  // Starts it again, under the same address.
  void restart();

 private:
  const TemporaryFolder folder_{};
  const std::string address_;
  const std::map<std::string, std::string> environment_;
  std::unique_ptr<ChildProcess> daemon_{};
};

// What looks like a bus until one speaks to it: it takes connections and never answers.
class SilentBus {
 public:
  SilentBus();
  ~SilentBus();
  SilentBus(const SilentBus&) = delete;
  SilentBus& operator=(const SilentBus&) = delete;

  std::string address() const { return "unix:path=" + folder_.file("bus"); }

 private:
  const TemporaryFolder folder_{};
  int socket_ = -1;
};

}  // namespace support
