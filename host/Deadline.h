// The time that the whole command may take, as `--timeout` says: whoever waits asks here for how
// long, so that no wait goes on after it.
//
// Thread rule: any thread asks; one thread sets it, before any other starts, and puts it off.
#pragma once

#include <chrono>

namespace host {

// The command has so many seconds from now on. Without a call there is no end to it, beyond the
// limits that every wait has of its own.
void setDeadline(double seconds);
void clearDeadline();  // for tests

// Puts the end off, for what must not be left undone: there are at least so many seconds from now
// on.
void allowAtLeast(double seconds);

// How long a wait may last that has a limit of its own: the smaller of that and what is left, and
// never less than nothing. For work without a wait, whether anything is left.
double secondsLeft(double limit);
bool isTimeLeft();
std::chrono::milliseconds timeLeft(std::chrono::milliseconds limit);

// When such a wait, begun now, is over.
std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds limit);

// Waits until the descriptor is ready for the event of poll(), or has failed, which using it tells.
// False at the deadline; one look is taken however late it is.
bool isReadyBefore(std::chrono::steady_clock::time_point deadline, int descriptor, short event);

}  // namespace host
