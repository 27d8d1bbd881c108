#include "src/ports/DesktopPortal.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "src/ports/BusConnection.h"
#include "src/ports/BusLibrary.h"

namespace qvr {

namespace {

constexpr char kPortal[] = "org.freedesktop.portal.Desktop";
constexpr char kPortalPath[] = "/org/freedesktop/portal/desktop";

// The last part of the request's path. The connection has no other request.
constexpr char kToken[] = "qvroauth2";

const BusLibrary& library() {
  return BusLibrary::shared();
}

// Where the portal will put the request: known beforehand, so that its answer cannot be missed.
std::string requestPath(const BusConnection& connection) {
  const char* name = nullptr;
  library().sd_bus_get_unique_name(connection.get(), &name);
  std::string sender = name == nullptr ? "" : std::string(name).substr(1);  // ":1.42"
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(kPortalPath) + "/request/" + sender + "/" + kToken;
}

BusMessage makeOpenURI(const BusConnection& connection, const std::string& url) {
  constexpr char kNoWindow[] = "";
  BusMessage call =
      connection.makeCall(kPortal, kPortalPath, "org.freedesktop.portal.OpenURI", "OpenURI");
  if (!call) return nullptr;
  library().sd_bus_message_sensitive(call.get());
  const int result = library().sd_bus_message_append(call.get(), "ssa{sv}", kNoWindow, url.c_str(),
                                                     1, "handle_token", "s", kToken);
  return result < 0 ? nullptr : std::move(call);
}

// Nobody has seen the address: there is no portal, or none that opens addresses.
bool isAbsent(const BusReply& reply) {
  constexpr const char* kAbsences[] = {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER,
                                       SD_BUS_ERROR_UNKNOWN_METHOD, SD_BUS_ERROR_UNKNOWN_INTERFACE,
                                       SD_BUS_ERROR_UNKNOWN_OBJECT};
  return reply.kind == BusReply::Kind::kError &&
         (reply.errorName.starts_with("org.freedesktop.DBus.Error.Spawn.") ||
          std::find(std::begin(kAbsences), std::end(kAbsences), reply.errorName) !=
              std::end(kAbsences));
}

}  // namespace

PortalOutcome openByPortal(const std::string& url, const PortalOptions& options) {
  using Clock = BusConnection::Clock;
  const Clock::time_point deadline = Clock::now() + options.callTimeout;
  const auto connection = BusConnection::open(options.busAddress, options.callTimeout, nullptr);
  if (!connection) return PortalOutcome::kAbsent;

  std::optional<std::uint32_t> response;  // 0 for success
  const auto subscription =
      connection->subscribe(kPortal, requestPath(*connection), "org.freedesktop.portal.Request",
                            "Response", [&response](sd_bus_message* signal) {
                              std::uint32_t value = 0;
                              if (library().sd_bus_message_read(signal, "u", &value) > 0)
                                response = value;
                            });
  const BusReply reply =
      connection->call(makeOpenURI(*connection, url),
                       std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
  if (isAbsent(reply)) return PortalOutcome::kAbsent;
  if (!subscription || !reply.isAnswer()) return PortalOutcome::kFailed;
  connection->processUntil([&response] { return response.has_value(); },
                           Clock::now() + options.failurePatience);
  return response.value_or(0) == 0 ? PortalOutcome::kTaken : PortalOutcome::kFailed;
}

}  // namespace qvr
