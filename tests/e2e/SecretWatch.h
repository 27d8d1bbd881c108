// What a command makes the system show to others: the arguments and the environment of every
// program that it or one of its descendants executes, as they stand in /proc/PID/cmdline and
// /proc/PID/environ.
//
// A look at /proc now and then would miss a program that ends between two looks. strace stops each
// process at each execve() instead, and writes down what the new program is given, so that none is
// missed however short it lives. It lets all other calls run at full speed (--seccomp-bpf), and as
// a grandchild (--daemonize) it leaves the command's process identifier, signals and exit status to
// whoever started it.
#pragma once

#include <string>
#include <thread>
#include <vector>

namespace e2e {

struct Execution {
  std::string process;  // its identifier
  std::string path;
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
};

class SecretWatch {
 public:
  // What strace writes comes through a pipe with this path.
  explicit SecretWatch(std::string pipe);
  ~SecretWatch();
  SecretWatch(const SecretWatch&) = delete;
  SecretWatch& operator=(const SecretWatch&) = delete;

  // The command line that runs `arguments` under watch.
  std::vector<std::string> wrapped(const std::vector<std::string>& arguments) const;

  // Waits until the last process has ended, and answers what was executed, or was to be. Throws
  // when that does not happen in time.
  std::vector<Execution> finish();

 private:
  void read();

  const std::string path_;
  int pipe_ = -1;
  bool isComplete_ = false;
  std::string written_;
  std::thread reader_;
};

// A line of strace's: `PID execve("path", ["argument", ...], ["NAME=value", ...]) = 0`.
Execution parsedExecution(const std::string& line);

}  // namespace e2e
