#include "tests/host/TerminalProcess.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <utility>

namespace host_test {

namespace {

constexpr int kDeadlineMilliseconds = 30'000;

}  // namespace

TerminalProcess::TerminalProcess(std::vector<std::string> arguments,
                                 const std::map<std::string, std::string>& environment) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
  if (pid_ != 0) return;
  sigset_t none;  // a test before this one may have blocked some
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const auto& [name, value] : environment)
    setenv(name.c_str(), value.c_str(), 1);
  execv(pointers[0], pointers.data());
  _exit(127);
}

TerminalProcess::~TerminalProcess() {
  if (terminal_ >= 0) close(terminal_);
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

bool TerminalProcess::readSome() {
  struct pollfd wait = {terminal_, POLLIN, 0};
  if (poll(&wait, 1, kDeadlineMilliseconds) <= 0) return false;
  char buffer[4096];
  const ssize_t count = read(terminal_, buffer, sizeof buffer);
  if (count <= 0) return false;  // EIO: the child has closed its end
  shown_.append(buffer, static_cast<std::size_t>(count));
  return true;
}

bool TerminalProcess::waitFor(const std::string& text) {
  for (;;) {
    const std::size_t at = shown_.find(text, seen_);
    if (at != std::string::npos) {
      seen_ = at + text.size();
      return true;
    }
    if (!readSome()) return false;
  }
}

void TerminalProcess::type(const std::string& text) {
  const ssize_t written = write(terminal_, text.data(), text.size());
  if (written != static_cast<ssize_t>(text.size())) abort();
}

bool TerminalProcess::echoes() const {
  struct termios settings = {};
  return tcgetattr(terminal_, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
}

int TerminalProcess::wait() {
  while (readSome()) {
  }
  struct pollfd terminal = {terminal_, POLLIN, 0};
  const bool isOver = poll(&terminal, 1, 0) > 0;  // the child's end is closed: it is about to end
  if (!isOver) kill(pid_, SIGKILL);
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  if (!isOver) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace host_test
