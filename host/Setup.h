// Tells the library the command's configuration, once, before its first use.
#pragma once

#include <optional>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "QVROAuth2Client/platform/Workspace.h"
#include "host/Configuration.h"
#include "host/Failure.h"

namespace host {

// What stands in for the operating system; an unset one is the library's own port. For tests.
struct Seams {
  qvr::Ref<qvr::URLSession> urlSession;
  qvr::Ref<qvr::KeychainItems> keychainItems;
  qvr::Ref<qvr::Workspace> workspace;
  qvr::Clock clock;
};

// Installs the configuration: registrations, endpoints, keychain (asking for its passphrase when it
// has one), a session with the command's deadlines, and a log that shows no secret. Nothing is
// installed when it fails.
std::optional<Failure> installHost(const Configuration& configuration, Seams seams = {});

// The keychain items and the clock that were installed.
qvr::Ref<qvr::KeychainItems> keychainItems();
qvr::Date now();

}  // namespace host
