// A terminal that does not show what is typed, for a scope.
#pragma once

#include <signal.h>
#include <termios.h>

namespace host {

// True for a terminal in whose background this process runs: reading from it or changing its
// settings would stop the process (SIGTTIN, SIGTTOU).
bool isAnotherJobsTerminal(int terminal);

// Turns the terminal's echo off. The signals that end the process wait until the echo is back, and
// are then delivered as ever.
class WithoutEcho {
 public:
  explicit WithoutEcho(int terminal);
  ~WithoutEcho();
  WithoutEcho(const WithoutEcho&) = delete;
  WithoutEcho& operator=(const WithoutEcho&) = delete;

  bool isOff() const { return changed_; }

 private:
  const int terminal_;
  bool changed_ = false;
  struct termios settings_ = {};
  sigset_t signals_ = {};
};

}  // namespace host
