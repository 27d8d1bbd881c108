// The time that the whole command may take, as `--timeout` says: whoever waits asks here for how
// long, so that no wait goes on after it.
//
// Thread rule: any thread; it is set before any other thread starts.
#pragma once

#include <chrono>

namespace host {

// The command has so many seconds from now on. Without a call there is no end to it, beyond the
// limits that every wait has of its own.
void setDeadline(double seconds);
void clearDeadline();  // for tests

// How long a wait may last that has a limit of its own: the smaller of that and what is left, and
// never less than nothing.
double secondsLeft(double limit);
std::chrono::milliseconds timeLeft(std::chrono::milliseconds limit);

}  // namespace host
