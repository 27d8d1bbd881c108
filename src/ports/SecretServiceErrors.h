// What the answers of a Secret Service that are no answers mean for a keychain.
#pragma once

#include <cstdint>
#include <string>

#include "src/ports/BusConnection.h"

namespace qvr {

// What an operation stops with. Thrown inside the Secret Service keychain only.
struct SecretServiceFailure {
  std::int32_t status;   // a KeychainStatus
  std::string reason{};  // a sentence, without a name or a secret
  bool isDeath = false;  // the service or the bus went away: another try may find a new one
};

SecretServiceFailure secretServiceDied();
SecretServiceFailure keyringIsLocked();
SecretServiceFailure noDefaultKeyring();
SecretServiceFailure malformedAnswer();

// What was called: the same error means another thing on each.
enum class SecretServiceObject {
  kWellKnownName,   // whoever offers the service, perhaps to be started
  kDefaultKeyring,  // the alias of the default collection
  kItem,
  kOther,
};

// Throws what the reply means when it is no answer.
void requireAnswer(const BusReply& reply, SecretServiceObject called);

}  // namespace qvr
