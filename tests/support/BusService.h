// A service on a D-Bus message bus, run by a thread of its own: a test's stand-in for what a
// desktop has there.
#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <string>
#include <thread>

namespace support {

class BusService {
 public:
  // Gets each method call that is made to the service, on the service's thread; answers it or not.
  using Handler = std::function<void(sd_bus_message* call)>;

  // Owns the name when this returns.
  BusService(const std::string& address, const std::string& name, Handler handler);
  ~BusService();
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

 private:
  static int receive(sd_bus_message* message, void* service, sd_bus_error*);
  void run();

  const Handler handler_;
  sd_bus* bus_ = nullptr;
  int end_ = -1;  // readable when the thread shall end
  std::thread thread_;
};

}  // namespace support
