#include "host/PendingRequest.h"

#include <csignal>

#include "host/Console.h"
#include "host/Deadline.h"
#include "host/Signals.h"

namespace host {
namespace {

// Long enough for nearly every answer, short enough for who wants to leave.
constexpr double kLastSeconds = 5;

}  // namespace

Event waitForPendingRequest(int arrival, double seconds) {
  allowAtLeast(kLeastRequestSeconds);
  const SignalWatch signals;
  Event event = waitForEvent(arrival, signals.fileDescriptor(), seconds);
  const int number = event == Event::kSignal ? takeSignal(signals.fileDescriptor()) : 0;
  if (number == 0) return event;
  say("Waiting up to 5 s for the provider's answer, so that no token is lost, before ending; a "
      "second signal ends at once.");
  event = waitForEvent(arrival, signals.fileDescriptor(), kLastSeconds);
  raise(number);
  return event;
}

}  // namespace host
