// The desktop ports of a build that found no libsystemd: each says that it is not there.

#include "QVROAuth2Client/platform/Desktop.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/DesktopPortal.h"

namespace qvr {

namespace {

constexpr const char* kReason =
    "This build has no D-Bus support: libsystemd was not there when it was made.";

class AbsentKeychain final : public KeychainItems {
 public:
  std::int32_t copyMatching(const KeychainQuery&, Data*) override { return errSecNotAvailable; }
  std::int32_t add(const KeychainQuery&) override { return errSecNotAvailable; }
  std::int32_t update(const KeychainQuery&, const KeychainQuery&) override {
    return errSecNotAvailable;
  }
  std::int32_t remove(const KeychainQuery&) override { return errSecNotAvailable; }
  std::int32_t list(std::vector<KeychainItemName>*) override { return errSecNotAvailable; }
};

}  // namespace

PortalOutcome openByPortal(const std::string&, const PortalOptions&) {
  return PortalOutcome::kAbsent;
}

inline namespace v1 {

Ref<KeychainItems> makeSecretServiceKeychain(SecretServiceOptions) {
  return makeRef<AbsentKeychain>();
}

SecretServiceState examineSecretService(const SecretServiceOptions&) {
  return {SecretServiceState::Kind::kAbsent, kReason};
}

Ref<URLReceiver> makeURLReceiver(const URLReceiverOptions&, std::string* problem) {
  if (problem != nullptr) *problem = kReason;
  return nullptr;
}

bool reloadSessionServices(const std::string&, double) {
  return false;
}

bool showNotification(const NotificationOptions&) {
  return false;
}

}  // namespace v1
}  // namespace qvr
