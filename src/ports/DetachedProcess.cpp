#include "src/ports/DetachedProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <optional>
#include <system_error>
#include <thread>

namespace qvr {

namespace {

// A session of its own (no terminal's signals reach it), every signal as it is by default.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    posix_spawnattr_setflags(&attributes_,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

// Standard streams to nowhere, and no other descriptor.
class SpawnFileActions {
 public:
  SpawnFileActions() {
    posix_spawn_file_actions_init(&actions_);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
  }
  ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnFileActions(const SpawnFileActions&) = delete;
  SpawnFileActions& operator=(const SpawnFileActions&) = delete;

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// The form that exec takes; borrows the strings.
std::vector<char*> pointersTo(const std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (const std::string& string : strings)
    pointers.push_back(const_cast<char*>(string.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::optional<pid_t> start(const ProcessCommand& command) {
  const SpawnAttributes attributes;
  const SpawnFileActions actions;
  pid_t child = 0;
  const int failure =
      posix_spawn(&child, command.program.c_str(), actions.get(), attributes.get(),
                  pointersTo(command.arguments).data(), pointersTo(command.environment).data());
  if (failure != 0) return std::nullopt;
  return child;
}

// Waits until the child has ended; false when it failed. A host that reaps children itself leaves
// no status to ask for, and then there is no failure to report.
bool endedWell(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return true;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

// A thread of its own waits for the child: it knows the end at once, and leaves no zombie however
// late that comes.
bool runDetached(const ProcessCommand& command, std::chrono::milliseconds patience) {
  const std::optional<pid_t> child = start(command);
  if (!child) return false;
  std::packaged_task<bool()> wait([child] { return endedWell(*child); });
  std::future<bool> outcome = wait.get_future();
  try {
    std::thread(std::move(wait)).detach();
  } catch (const std::system_error&) {
    return true;  // it is running, and there is no thread to watch it
  }
  if (outcome.wait_for(patience) != std::future_status::ready) return true;
  return outcome.get();
}

}  // namespace qvr
