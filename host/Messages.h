// The library's errors in plain words: one sentence that says what happened and what to do, and the
// exit status that QVROAuth2AdviceForError() stands for.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Error.h"
#include "host/AnswerObserver.h"
#include "host/Command.h"
#include "host/Failure.h"

namespace host {

// The exit status of an error: never kDone.
int exitStatusForError(const qvr::ErrorPtr& error);

// What happened and what to do about it, for an account. What a provider says is cut to a few
// hundred characters; the body of an answer is never shown.
Failure failureForError(const qvr::ErrorPtr& error, const Account& account);

// The same for an error that an answer of the provider led to: whatever its text says, the answer's
// status can tell that it is a passing one, and its Retry-After when to try again. What a new
// sign-in, with other consent or another policy, would mend is kSignInNeeded.
Failure failureForAnswer(const qvr::ErrorPtr& error, const Account& account,
                         const ObservedAnswer& answer);

// The same for a status of a keychain of the kind (see Keychains.h).
Failure failureForKeychainStatus(std::int32_t status, std::string_view kind,
                                 const Account& account = {});

// "USER at PROVIDER", for a sentence.
std::string nameOf(const Account& account);

// That the user has to sign in again, with the command; `reason` is a sentence.
Failure signInNeeded(const Account& account, const std::string& reason);

// The text as one word of a shell command, quoted where it has to be.
std::string shellQuoted(std::string_view text);

// `qvr-oauth2 COMMAND PROVIDER USER`, in backquotes, for a sentence.
std::string commandLine(std::string_view command, const Account& account);
std::string signInCommand(const Account& account);

// The command that writes the configuration at the path, in backquotes.
std::string configCommand(const std::string& configurationPath);

}  // namespace host
