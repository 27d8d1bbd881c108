#include "host/Passphrase.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "host/Console.h"
#include "host/Deadline.h"
#include "host/Descriptor.h"
#include "host/Signals.h"
#include "host/Steps.h"
#include "host/WithoutEcho.h"

extern char** environ;

namespace host {
namespace {

constexpr std::chrono::seconds kAnswerDeadline(120);
constexpr std::size_t kLongestPassphrase = 4096;

using Clock = std::chrono::steady_clock;

Clock::time_point deadlineOfAnswer() {
  return deadlineAfter(kAnswerDeadline);
}

// Waits until a descriptor is readable. False at the deadline, with errno ETIMEDOUT, and when
// `interruption` (which may be -1) is readable, with EINTR.
bool waitUntilReadable(int descriptor, int interruption, Clock::time_point deadline) {
  struct pollfd waits[] = {{descriptor, POLLIN, 0}, {interruption, POLLIN, 0}};
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    const int ready = left.count() <= 0 ? 0 : poll(waits, 2, static_cast<int>(left.count()) + 1);
    if (ready < 0 && errno != EINTR) return false;
    if (ready == 0) errno = ETIMEDOUT;
    if (ready > 0 && waits[1].revents != 0) errno = EINTR;
    if (ready >= 0) return ready > 0 && waits[1].revents == 0;
  }
}

// Reads up to the end of the input, or of the first line when `oneLine`. False, with errno set, at
// the deadline, on an interruption, and for input that is too long.
bool readUntilEnd(int descriptor, int interruption, Clock::time_point deadline, bool oneLine,
                  std::string* text) {
  while (text->size() < kLongestPassphrase) {
    if (!waitUntilReadable(descriptor, interruption, deadline)) return false;
    char buffer[256];
    const ssize_t count = read(descriptor, buffer, sizeof buffer);
    if (count < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (count == 0) return true;
    if (count > 0) text->append(buffer, static_cast<std::size_t>(count));
    if (oneLine && text->find('\n') != std::string::npos) return true;
  }
  errno = EMSGSIZE;
  return false;
}

// Reads the first line a byte at a time, so that nothing behind it is consumed. False, with errno
// set, when it cannot be read.
bool readFirstLine(int descriptor, Clock::time_point deadline, std::string* line) {
  while (line->size() < kLongestPassphrase) {
    if (!waitUntilReadable(descriptor, -1, deadline)) return false;
    char byte = 0;
    const ssize_t count = read(descriptor, &byte, 1);
    if (count < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (count == 0 || (count > 0 && byte == '\n')) return true;
    if (count > 0) *line += byte;
  }
  errno = EMSGSIZE;
  return false;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

// Starts `command` with its standard output in the pipe; -1 when that fails.
pid_t startShell(const std::string& command, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  sigset_t none;
  sigset_t pipeSignal;
  sigemptyset(&none);
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &pipeSignal);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  std::string script = command;
  char shell[] = "sh";
  char option[] = "-c";
  char* const arguments[] = {shell, option, script.data(), nullptr};
  pid_t child = -1;
  const int status = posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return status == 0 ? child : -1;
}

// Waits for the child's end, and ends it at the deadline. True when it exited with status 0.
bool endsWell(pid_t child, Clock::time_point deadline) {
  const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  if (!waitUntilReadable(process.number(), -1, deadline)) kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::variant<std::string, Failure> commandOutput(const std::string& command) {
  const Failure failure = {
      kFailed,
      "The keychain's passphrase_command printed no passphrase: run it by hand to see why."};
  const Failure late = {kTryAgainLater,
                        "The keychain's passphrase_command did not end in time: run it by hand "
                        "to see why."};
  step("running the keychain's passphrase_command");
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return failure;
  const Descriptor output(ends[0]);
  Descriptor input(ends[1]);
  const pid_t child = startShell(command, input.number());
  input.close();
  if (child < 0) return failure;
  const auto deadline = deadlineOfAnswer();
  std::string text;
  const bool complete = readUntilEnd(output.number(), -1, deadline, false, &text);
  if (!endsWell(child, complete ? deadline : Clock::now()))
    return Clock::now() >= deadline ? late : failure;
  const std::string line = firstLine(text);
  if (!complete || line.empty()) return failure;
  return line;
}

std::variant<std::string, Failure> askForPassphrase(std::string_view prompt) {
  auto answer = askHidden(prompt);
  if (const auto* failure = std::get_if<Failure>(&answer)) {
    return Failure{failure->status,
                   failure->sentence +
                       " The keychain needs its passphrase: run the command on a "
                       "terminal, set passphrase_command in the configuration, or give "
                       "--passphrase-fd."};
  }
  if (std::get<std::string>(answer).empty()) {
    return Failure{kFailed, "The keychain's passphrase cannot be empty."};
  }
  return answer;
}

}  // namespace

std::variant<std::string, Failure> askHidden(std::string_view prompt) {
  const Descriptor terminal(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
  if (terminal.number() < 0) return Failure{kFailed, "There is no terminal to ask on."};
  if (isAnotherJobsTerminal(terminal.number())) {
    return Failure{kFailed, "The terminal belongs to another job, so nothing can be asked on it."};
  }
  std::string text;
  const WithoutEcho silence(terminal.number());
  if (!silence.isOff()) return Failure{kFailed, "The terminal's echo cannot be turned off."};
  const SignalWatch interruption;
  // A terminal that cannot show the prompt cannot be typed at either; the read tells.
  writeAll(terminal.number(), prompt);
  const auto deadline = deadlineOfAnswer();
  const bool complete =
      readUntilEnd(terminal.number(), interruption.fileDescriptor(), deadline, true, &text);
  const bool isLate = !complete && errno == ETIMEDOUT;
  writeAll(terminal.number(), "\n");
  if (isLate)
    return Failure{kTryAgainLater, "Nobody typed anything in time: run the command again."};
  if (!complete) return Failure{kFailed, "Nothing was typed."};
  return firstLine(text);
}

std::variant<std::string, Failure> readPassphrase(int descriptor) {
  const auto failure = [descriptor](const std::string& what, int status = kFailed) {
    return Failure{status, "The passphrase " + what + " file descriptor " +
                               std::to_string(descriptor) + ": check --passphrase-fd."};
  };
  step("reading the passphrase from file descriptor " + std::to_string(descriptor));
  std::string line;
  if (!readFirstLine(descriptor, deadlineOfAnswer(), &line)) {
    if (errno == ETIMEDOUT) return failure("did not come in time from", kTryAgainLater);
    return failure(std::string("cannot be read (") + std::strerror(errno) + ") from");
  }
  if (line.empty()) return failure("must not be empty: there is an empty line, or none, on");
  return line;
}

std::variant<std::string, Failure> obtainPassphrase(const std::string& command, bool isNew) {
  if (!command.empty()) return commandOutput(command);
  if (!isNew) return askForPassphrase("Passphrase of the keychain: ");
  const auto answer = askForPassphrase("New passphrase of the keychain: ");
  if (std::holds_alternative<Failure>(answer)) return answer;
  const auto again = askForPassphrase("The same passphrase again: ");
  if (std::holds_alternative<Failure>(again)) return again;
  if (std::get<std::string>(again) == std::get<std::string>(answer)) return answer;
  return Failure{kFailed, "The two passphrases differ: run the command again."};
}

}  // namespace host
