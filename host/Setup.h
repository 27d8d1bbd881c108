// Tells the library the command's configuration, once, before its first use.
#pragma once

#include <optional>
#include <string>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "QVROAuth2Client/platform/Workspace.h"
#include "host/Configuration.h"
#include "host/Failure.h"
#include "host/ObservedSession.h"

namespace host {

// What stands in for the operating system; an unset one is the library's own port. For tests.
struct Seams {
  qvr::Ref<qvr::URLSession> urlSession;
  qvr::Ref<qvr::KeychainItems> keychainItems;
  qvr::Ref<qvr::Workspace> workspace;
  qvr::Clock clock;
};

// Installs the configuration: registrations, endpoints, keychain (chosen on first use, and asking
// for its passphrase when it has one), a session with the command's deadlines, and a log that shows
// no secret. Nothing is installed when it fails. The configuration's lock is held from here on.
std::optional<Failure> installHost(const Configuration& configuration, Seams seams = {});

// Why the certificate authority that the configuration names, if any, cannot be read.
std::optional<Failure> certificateAuthorityProblem(const Configuration& configuration);

// The keychain items, the kind of keychain that they are of (empty for those of the seams), the
// path of the configuration (empty before), the session and the clock that were installed.
qvr::Ref<qvr::KeychainItems> keychainItems();
const std::string& keychainKind();
const std::string& configurationPath();
qvr::Ref<ObservedSession> urlSession();
qvr::Date now();

}  // namespace host
