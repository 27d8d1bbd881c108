// Waiting for the answer of a request whose effect at the provider must not get lost: it replaces
// or revokes a token, and what it did has to reach the keychain.
#pragma once

#include <optional>

#include "host/SignalledOutcome.h"

namespace host {

// A request gets at least so many seconds, however little of the command's own time is left when it
// is sent (see Deadline.h).
inline constexpr double kLeastRequestSeconds = 5;

// Waits for an answer, at most `seconds`. A signal that asks the command to end shortens the wait
// to a few seconds, and a second one ends it; the signal is then pending again, and ends the
// process when it may (see TerminationBlocked, whose scope this is to be called in).
Event waitForPendingRequest(int arrival, double seconds);

// The answer to a request of the outcome; absent when none came in time.
template <class T>
std::optional<T> answerOfPendingRequest(const SignalledOutcome<T>& outcome, double seconds) {
  const bool isThere = waitForPendingRequest(outcome.arrival(), seconds) == Event::kAnswer;
  return isThere ? outcome.take() : std::nullopt;
}

}  // namespace host
