// The keychains that the command can use, by the names of keychain.kind.
#pragma once

#include <string_view>
#include <variant>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/Configuration.h"
#include "host/Failure.h"

namespace host {

using KeychainOrFailure = std::variant<qvr::Ref<qvr::KeychainItems>, Failure>;

// The keychain of the kind. The files may need a passphrase, which is asked for here; the keyring
// may ask the user to unlock it later, which is then said on standard error.
KeychainOrFailure makeKeychain(std::string_view kind, const Configuration::Keychain& keychain);

// What there is of the desktop's keyring, within the command's own time (see Deadline.h).
qvr::SecretServiceState examineKeyring();

// How a sentence calls it: "the desktop's keyring", "the encrypted files".
std::string_view keychainName(std::string_view kind);

}  // namespace host
