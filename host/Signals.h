// The signals that ask the command to end (SIGINT, SIGTERM, SIGHUP, SIGQUIT; not those that it was
// started to ignore), as something to wait for beside everything else that it waits for.
#pragma once

#include <signal.h>

#include "host/Descriptor.h"

namespace host {

// Blocks the signals for this thread and all threads that it starts. Call it before any
// thread starts; from then on the signals reach nobody but a SignalWatch. A command that watches
// none does not call it: the signals end it, as they end any program.
void blockTerminationSignals();

// The same for a scope, for work that must not be cut in two: a signal that came meanwhile ends the
// process when the scope ends. Threads that are started in the scope never take the signals.
class TerminationBlocked {
 public:
  TerminationBlocked();
  ~TerminationBlocked();
  TerminationBlocked(const TerminationBlocked&) = delete;
  TerminationBlocked& operator=(const TerminationBlocked&) = delete;

 private:
  sigset_t previous_;
};

// Lets the signals end the process for a scope: for blocking calls, such as one to a keychain that
// asks the user for something, while there is nothing to tidy up. Afterwards they are blocked again
// if they were.
class TerminationAllowed {
 public:
  TerminationAllowed();
  ~TerminationAllowed();
  TerminationAllowed(const TerminationAllowed&) = delete;
  TerminationAllowed& operator=(const TerminationAllowed&) = delete;

 private:
  sigset_t previous_;
};

// A file descriptor that is readable while one of the signals is pending.
class SignalWatch {
 public:
  SignalWatch();

  // For poll(); -1 when the system has none to give.
  int fileDescriptor() const { return descriptor_.number(); }

 private:
  const Descriptor descriptor_;
};

// Takes a pending signal from such a descriptor: its number, or 0 when none is pending. Never
// blocks.
int takeSignal(int descriptor);

}  // namespace host
