// A child process on a terminal of its own, typed at by the test.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace host_test {

class TerminalProcess {
 public:
  TerminalProcess(std::vector<std::string> arguments,
                  const std::map<std::string, std::string>& environment);
  ~TerminalProcess();
  TerminalProcess(const TerminalProcess&) = delete;
  TerminalProcess& operator=(const TerminalProcess&) = delete;

  // Waits until the terminal shows the text after all that was waited for before; false when the
  // deadline passes or the child ends first.
  bool waitFor(const std::string& text);

  void type(const std::string& text);

  // Whether the terminal shows what is typed.
  bool echoes() const;

  // Collects the exit status, or 128 plus the number of the signal; -1 when the deadline passed.
  int wait();

  // All that the terminal has shown.
  const std::string& shown() const { return shown_; }

 private:
  bool readSome();

  pid_t pid_ = -1;
  int terminal_ = -1;
  std::string shown_;
  std::size_t seen_ = 0;
};

}  // namespace host_test
