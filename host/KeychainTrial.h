// Whether a keychain keeps what it is given, found out with an item that is removed again.
#pragma once

#include <optional>
#include <string_view>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "host/Failure.h"

namespace host {

// Adds an item of no account, under a name that is nobody else's, reads it back, compares it, and
// removes it, also when it does not come back as it went in. The failure says what did not work, in
// words for the kind of keychain (keychain.kind).
//
// Thread rule: any thread. Blocks as long as the keychain does.
std::optional<Failure> keychainProblem(qvr::KeychainItems& keychain, std::string_view kind);

}  // namespace host
