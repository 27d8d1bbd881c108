// An outcome (see Wait.h) for which one can wait beside the signals that ask the command to end.
//
// Thread rule: as for an Outcome.
#pragma once

#include <sys/eventfd.h>

#include <memory>
#include <optional>
#include <utility>

#include "host/Descriptor.h"
#include "host/Wait.h"

namespace host {

enum class Event { kAnswer, kSignal, kDeadline };

// `arrival` is readable once there is an answer, `signals` (which may be -1) when there is a
// signal. The answer counts when both are.
Event waitForEvent(int arrival, int signals, double seconds);

template <class T>
class SignalledOutcome {
 public:
  void deliver(T value) const {
    outcome_.deliver(std::move(value));
    eventfd_write(arrival_->number(), 1);
  }

  // Readable once there is an answer.
  int arrival() const { return arrival_->number(); }

  Event wait(int signals, double seconds) const {
    return waitForEvent(arrival(), signals, seconds);
  }

  // Takes the value, if it is there.
  std::optional<T> take() const { return outcome_.wait(0); }

 private:
  Outcome<T> outcome_;
  std::shared_ptr<const Descriptor> arrival_ =
      std::make_shared<const Descriptor>(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
};

}  // namespace host
