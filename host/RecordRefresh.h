// Replacing the tokens of an account by new ones, once for all processes that ask at a time.
#pragma once

#include <variant>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "host/Command.h"
#include "host/Failure.h"

namespace host {

using RecordOrFailure = std::variant<qvr::Ref<QVROAuth2Token>, Failure>;

// True when `token` has to refresh the record before it serves it.
bool isDue(const QVROAuth2Token& record, const TokenOptions& options);

// The record that is to be served in place of `record`, which is due: refreshed and stored by this
// process, or by another one that was faster. The failure leaves what is stored untouched.
//
// To be called in the scope of a TerminationBlocked: signals end the process at once up to the
// moment when the refresh is sent, and then not before its answer is stored.
RecordOrFailure refreshedRecord(const Configuration& configuration, const TokenOptions& options,
                                const qvr::Ref<QVROAuth2Token>& record);

}  // namespace host
