#include "host/Signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace host {

namespace {

bool isIgnored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// Without those that whoever started the command has it ignore, as nohup does: a descriptor of
// signals would report them all the same.
sigset_t terminationSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    if (!isIgnored(signal)) sigaddset(&signals, signal);
  }
  return signals;
}

sigset_t setMask(int how) {
  const sigset_t signals = terminationSignals();
  sigset_t previous;
  sigemptyset(&previous);
  pthread_sigmask(how, &signals, &previous);
  return previous;
}

}  // namespace

void blockTerminationSignals() {
  setMask(SIG_BLOCK);
}

TerminationBlocked::TerminationBlocked() : previous_(setMask(SIG_BLOCK)) {}

TerminationBlocked::~TerminationBlocked() {
  pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

TerminationAllowed::TerminationAllowed() : previous_(setMask(SIG_UNBLOCK)) {}

TerminationAllowed::~TerminationAllowed() {
  pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

SignalWatch::SignalWatch()
    : descriptor_([] {
        const sigset_t signals = terminationSignals();
        return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
      }()) {}

int takeSignal(int descriptor) {
  signalfd_siginfo information{};
  const ssize_t size = read(descriptor, &information, sizeof information);
  return size == sizeof information ? static_cast<int>(information.ssi_signo) : 0;
}

}  // namespace host
