// What the bus itself is asked about the services that it starts.

#include <string>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "src/ports/Milliseconds.h"

namespace qvr {
inline namespace v1 {

bool reloadSessionServices(const std::string& busAddress, double timeoutSeconds) {
  const auto timeout = millisecondsOf(timeoutSeconds);
  const auto connection = BusConnection::open(busAddress, timeout, nullptr);
  if (!connection) return false;
  return connection
      ->call(connection->makeCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "ReloadConfig"),
             timeout)
      .isAnswer();
}

}  // namespace v1
}  // namespace qvr
