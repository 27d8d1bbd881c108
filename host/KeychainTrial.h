// Whether a keychain keeps what it is given, found out with an item that is removed again; or at
// least whether it answers. The failures say what did not work, in words for the kind of keychain
// (keychain.kind).
//
// Thread rule: any thread. Each blocks as long as the keychain does.
#pragma once

#include <optional>
#include <string_view>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "host/Failure.h"

namespace host {

// Adds an item of no account, under a name that is nobody else's, reads it back, compares it, and
// removes it, also when it does not come back as it went in. One that cannot be removed is named.
std::optional<Failure> roundTripProblem(qvr::KeychainItems& keychain, std::string_view kind);

// Looks for such an item, which opens the keychain and changes nothing in it.
std::optional<Failure> lookUpProblem(qvr::KeychainItems& keychain, std::string_view kind);

// What a sign-in finds out before anything else: whether the token would find a place. There are
// keyrings that ask the user before they store or remove an item, which would be at each sign-in:
// only files get the round trip.
std::optional<Failure> keychainProblem(qvr::KeychainItems& keychain, std::string_view kind);

}  // namespace host
