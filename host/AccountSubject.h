// Whose token an account has. A refresh must not put the tokens of one account in the place of
// another's. The addresses in an ID token prove nothing, since an alias or a shared mailbox may
// have another one than the account is called by; but issuer and subject of one account never
// change (OpenID Connect Core section 2). A hash of them is noted at sign-in, one small file for
// each account, in "subjects" below the user's data folder, beside the items of the file keychain.
//
// It is a safety net: without a note nothing is refused, and a note that cannot be written stops
// nothing.
//
// Thread rule: any thread.
#pragma once

#include <string>

#include "host/Account.h"

namespace host {

// Notes the subject, in place of the one that was noted before.
void noteSubject(const std::string& bundleIdentifier, const Account& account,
                 const std::string& subject);

// True when another subject is noted for the account; false when none is, or it cannot be read.
bool isAnotherSubject(const std::string& bundleIdentifier, const Account& account,
                      const std::string& subject);

// Removes the note, for an account that is signed out.
void forgetSubject(const std::string& bundleIdentifier, const Account& account);

}  // namespace host
