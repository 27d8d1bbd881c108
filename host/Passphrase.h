// Where the keychain's passphrase comes from: a file descriptor, a command of the user's, or the
// user.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "host/Failure.h"

namespace host {

// The first line that `command` prints, run by /bin/sh, whose standard input and error are ours; or
// what the user types on the terminal when `command` is empty. Both end with a deadline. One that
// `isNew` has to be typed twice: nothing could tell a slip of the fingers later, and what was
// sealed with it would be lost.
std::variant<std::string, Failure> obtainPassphrase(const std::string& command, bool isNew);

// The first line that can be read from the descriptor; what stands behind it is left there. Ends
// with a deadline.
std::variant<std::string, Failure> readPassphrase(int descriptor);

// Asks on the controlling terminal, without echo; the answer may be empty. Fails when there is no
// terminal, at the deadline, and when a signal ends the command, which happens once the terminal is
// as it was.
std::variant<std::string, Failure> askHidden(std::string_view prompt);

}  // namespace host
