// Which keychain a configuration uses: as it says, or chosen once and written into it.
#pragma once

#include <functional>
#include <string_view>
#include <variant>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/Configuration.h"
#include "host/ConfigurationLock.h"
#include "host/Failure.h"

namespace host {

// Looks for a Secret Service; examineSecretService() of Ports.h but in tests.
using SecretServiceExaminer = std::function<qvr::SecretServiceState()>;

// True when something has been kept in the folder of the encrypted files, and when that cannot be
// told.
bool isFileKeychainInUse(const Configuration::Keychain& keychain);

// What would be chosen now: the encrypted files for whoever has some already, so that nobody seems
// signed out; else the Secret Service where one answers, locked or not; else the files.
std::string_view keychainToChoose(const Configuration::Keychain& keychain,
                                  const SecretServiceExaminer& examine);

// Completes configuration.keychain.kind from the file, which may have changed since it was read. A
// choice that has not been made is made, written into the file, and said on standard error. The
// lock that is returned holds it for as long as it is kept.
//
// A choice of files that cannot be written into a read-only configuration holds all the same:
// whoever keeps something in files gets files chosen. One of the Secret Service would not, as on
// the day on which one logs in without a desktop: it fails rather than have a later command look
// elsewhere and find nobody signed in.
std::variant<ConfigurationLock, Failure> settleKeychain(
    Configuration& configuration, const SecretServiceExaminer& examine,
    ConfigurationLock::Kind lock = ConfigurationLock::Kind::kShared);

}  // namespace host
