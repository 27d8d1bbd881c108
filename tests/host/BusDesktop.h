// A desktop session of a test's own: a bus, what opens URLs there, and what shows notifications.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tests/support/BusService.h"
#include "tests/support/PrivateBus.h"

namespace host_test {

class BusDesktop {
 public:
  // `serviceFolder` holds the .service files of what the bus starts on demand.
  explicit BusDesktop(const std::string& serviceFolder = {});

  // Has the application open the URL, as the desktop does. Empty when it took it; else what it, or
  // the bus, answered.
  std::string open(const std::string& application, const std::string& url) const;

  // The texts of the notifications so far.
  std::vector<std::string> notifications() const;

  support::PrivateBus bus;

 private:
  void show(sd_bus_message* call);

  mutable std::mutex mutex_;
  std::vector<std::string> notifications_;
  const support::BusService server_;
};

// Has the bus keep what is sent to the name until somebody has it: a service file for it, with a
// program that only ends.
void keepForName(const support::TemporaryFolder& serviceFolder, const std::string& name);

}  // namespace host_test
