// Desktop notifications, by org.freedesktop.Notifications.

#include <chrono>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "src/ports/BusLibrary.h"
#include "src/ports/Milliseconds.h"

namespace qvr {

namespace {

// A server may read the body as markup, and then plain text has to be escaped; one that does not
// has to undo it all the same.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

// The call with its arguments; null when one of them is no valid text.
BusMessage makeNotify(const BusConnection& connection, const NotificationOptions& options) {
  constexpr std::uint32_t kReplacesNothing = 0;
  constexpr int kNoActions = 0;
  constexpr int kNoHints = 0;
  constexpr std::int32_t kServersOwnTime = -1;
  BusMessage call =
      connection.makeCall("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                          "org.freedesktop.Notifications", "Notify");
  if (!call) return nullptr;
  const int result = BusLibrary::shared().sd_bus_message_append(
      call.get(), "susssasa{sv}i", options.applicationName.c_str(), kReplacesNothing, "",
      options.summary.c_str(), escaped(options.body).c_str(), kNoActions, kNoHints,
      kServersOwnTime);
  return result < 0 ? nullptr : std::move(call);
}

}  // namespace

inline namespace v1 {

bool showNotification(const NotificationOptions& options) {
  using std::chrono::milliseconds;
  const auto deadline = BusConnection::Clock::now() + millisecondsOf(options.timeoutSeconds);
  const auto left = [deadline] {
    return std::chrono::ceil<milliseconds>(deadline - BusConnection::Clock::now());
  };
  const auto connection = BusConnection::open(options.busAddress, left(), nullptr);
  if (!connection) return false;
  BusMessage call = makeNotify(*connection, options);
  return call && connection->call(std::move(call), left()).isAnswer();
}

}  // namespace v1
}  // namespace qvr
