// The stored token record of an account, read and written by way of the library, with a deadline on
// every wait. Tokens that pass through here are kept out of all messages (see Secrets.h).
//
// The signals that ask the command to end do so at once while a record is read. Where they are
// blocked (see TerminationBlocked) they wait for everything else to be done.
#pragma once

#include <string_view>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Error.h"
#include "host/Command.h"

namespace host {

// The record; null, with *error set, when there is none or it cannot be read.
qvr::Ref<QVROAuth2Token> readRecord(const Account& account, qvr::ErrorPtr* error);

// These answer null when stored (and then durable), or removed.

// Stores a record that has come from the provider. That gets a few seconds even when the command's
// time is over (see Deadline.h).
qvr::ErrorPtr storeRecord(const Account& account, const qvr::Ref<QVROAuth2Token>& record);

// Stores a record in the place of the same, to see whether it can be. A signal may cut that short.
qvr::ErrorPtr rewriteRecord(const Account& account, const qvr::Ref<QVROAuth2Token>& record);

qvr::ErrorPtr removeRecord(const Account& account);

// A new record for one that has a refresh token without a space; null, with *error set, when the
// provider gave none. Nothing is stored. A signal ends the wait as waitForPendingRequest() says.
qvr::Ref<QVROAuth2Token> refreshRecord(const Account& account,
                                       const qvr::Ref<QVROAuth2Token>& record,
                                       qvr::ErrorPtr* error);

// The provider whose items have this service name; empty for other programs' items.
std::string_view providerOfService(std::string_view service);

// True when the text can stand in a form that the library sends: it raises on spaces.
bool canBeSent(const qvr::Text& token);

}  // namespace host
