// One descriptor to wait for on behalf of a bus connection. sd-bus asks for its socket to be
// watched now for reading, now for writing too, and at times wants to be called without either;
// whoever waits for a BusWatch sees a descriptor that is readable whenever there is something to
// do.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>

#include "src/ports/FileCalls.h"

namespace qvr {

class BusWatch {
 public:
  // Null when the process is out of descriptors. The bus has to outlive the watch.
  static std::unique_ptr<BusWatch> make(sd_bus* bus);

  // Readable when the bus has something to do. It stays the same.
  int fileDescriptor() const { return epoll_.get(); }

  // To be called whenever the bus has been processed. `isDue`: there is something to do as it is.
  void update(bool isDue);

 private:
  explicit BusWatch(sd_bus* bus);
  bool start();

  sd_bus* const bus_;
  FileDescriptor epoll_;
  FileDescriptor timer_;
};

}  // namespace qvr
