#include "bench/Processes.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "bench/InTurns.h"

namespace qvr::bench {
namespace {

[[noreturn]] void fail(const std::string& program, const char* what) {
  std::fprintf(stderr, "%s %s\n", program.c_str(), what);
  std::exit(1);
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts)
    pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Starts a program with its standard output in the descriptor.
using Start = pid_t (*)(char* const* arguments, char* const* environment, int output);

pid_t spawn(char* const* arguments, char* const* environment, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t process = -1;
  const int failure =
      posix_spawn(&process, arguments[0], &actions, nullptr, arguments, environment);
  posix_spawn_file_actions_destroy(&actions);
  return failure == 0 ? process : -1;
}

// Slower than spawn(), but the peak is the program's own: what posix_spawn() starts shares the
// memory of this process until then, and the kernel counts that as well.
pid_t forkAndExecute(char* const* arguments, char* const* environment, int output) {
  const pid_t process = fork();
  if (process != 0) return process;
  dup2(output, STDOUT_FILENO);
  execve(arguments[0], arguments, environment);
  _exit(127);
}

std::string readToEnd(int descriptor) {
  std::string text;
  char buffer[65536];
  for (ssize_t count; (count = read(descriptor, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  return text;
}

// The peak of one run, in bytes.
std::size_t runOnce(const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment, Start start,
                    const std::string& expectedOutput) {
  const std::string& name = arguments.front();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail(name, "cannot be given a pipe");
  const pid_t process =
      start(pointersTo(arguments).data(), pointersTo(environment).data(), ends[1]);
  close(ends[1]);
  if (process < 0) fail(name, "cannot be started");
  const std::string output = readToEnd(ends[0]);
  close(ends[0]);
  int status = 0;
  struct rusage usage = {};
  if (wait4(process, &status, 0, &usage) != process) fail(name, "cannot be waited for");
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) fail(name, "failed");
  if (output != expectedOutput) fail(name, "printed something else than expected");
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

}  // namespace

Program::Program(std::vector<std::string> arguments, std::vector<std::string> environment)
    : arguments_(std::move(arguments)), environment_(std::move(environment)) {}

void Program::run(const std::string& expectedOutput) const {
  runOnce(arguments_, environment_, spawn, expectedOutput);
}

std::size_t Program::peakBytes(const std::string& expectedOutput) const {
  return runOnce(arguments_, environment_, forkAndExecute, expectedOutput);
}

void measureProgramsInTurns(benchmark::State& state, const Program& floor, const Program& program,
                            const std::string& expectedOutput) {
  const auto peakBytes = static_cast<double>(program.peakBytes(expectedOutput));
  const auto floorPeakBytes = static_cast<double>(floor.peakBytes(expectedOutput));
  measureInTurns(
      state, 1, [&] { floor.run(expectedOutput); }, [&] { program.run(expectedOutput); });
  state.counters["peak_bytes"] = peakBytes;
  state.counters["floor_peak_bytes"] = floorPeakBytes;
}

}  // namespace qvr::bench
