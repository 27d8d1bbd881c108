#include "host/HelperProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "host/Deadline.h"
#include "host/Descriptor.h"
#include "host/Steps.h"

extern char** environ;

namespace host {
namespace {

// Starts the program; -1 when that fails.
pid_t start(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments)
    pointers.push_back(const_cast<char*>(argument.c_str()));  // which nobody writes to
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int status =
      posix_spawnp(&child, pointers.front(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return status == 0 ? child : -1;
}

}  // namespace

bool runHelperProgram(const std::vector<std::string>& arguments, double seconds) {
  const pid_t child = start(arguments);
  step("running " + arguments.front() + (child < 0 ? ", which is not there" : ""));
  if (child < 0) return false;
  const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  const auto limit =
      std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
  if (!process || !isReadyBefore(deadlineAfter(limit), process.number(), POLLIN))
    kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace host
