#include "host/WithoutEcho.h"

#include <pthread.h>
#include <unistd.h>

#include "host/Signals.h"

namespace host {

bool isAnotherJobsTerminal(int terminal) {
  const pid_t job = tcgetpgrp(terminal);
  return job != -1 && job != getpgrp();
}

WithoutEcho::WithoutEcho(int terminal) : terminal_(terminal) {
  pthread_sigmask(SIG_SETMASK, nullptr, &signals_);
  blockTerminationSignals();
  if (tcgetattr(terminal, &settings_) != 0) return;
  struct termios quiet = settings_;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  changed_ = tcsetattr(terminal, TCSAFLUSH, &quiet) == 0;
}

WithoutEcho::~WithoutEcho() {
  if (changed_) tcsetattr(terminal_, TCSAFLUSH, &settings_);
  pthread_sigmask(SIG_SETMASK, &signals_, nullptr);
}

}  // namespace host
