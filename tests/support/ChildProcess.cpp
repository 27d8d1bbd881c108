#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

extern char** environ;

namespace support {

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Pipe {
  int ends[2] = {-1, -1};
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe2");
    }
  }
};

void closeDescriptor(int& descriptor) {
  if (descriptor >= 0) close(std::exchange(descriptor, -1));
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!changes.contains(text.substr(0, text.find('=')))) result.push_back(text);
  }
  for (const auto& [name, value] : changes)
    result.push_back(name + "=" + value);
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts)
    result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// Appends what is there; closes the descriptor at its end.
void readInto(int& descriptor, std::string& text) {
  char buffer[65536];
  const ssize_t count = read(descriptor, buffer, sizeof buffer);
  if (count > 0) {
    text.append(buffer, static_cast<std::size_t>(count));
  } else if (count == 0 || errno != EINTR) {
    closeDescriptor(descriptor);
  }
}

}  // namespace

ChildProcess::ChildProcess(const Options& options) {
  Pipe in;
  Pipe out;
  Pipe err;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.ends[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err.ends[1], 2);
  std::vector<std::string> arguments = options.arguments;
  std::vector<std::string> environment = environmentWith(options.environment);
  const int status = posix_spawnp(&pid_, arguments.front().c_str(), &actions, nullptr,
                                  pointers(arguments).data(), pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  close(in.ends[0]);
  close(out.ends[1]);
  close(err.ends[1]);
  input_ = in.ends[1];
  outputPipe_ = out.ends[0];
  errorPipe_ = err.ends[0];
  if (status != 0) throw std::system_error(status, std::generic_category(), arguments.front());
  ::signal(SIGPIPE, SIG_IGN);  // a child that ends early must not end the test
}

ChildProcess::~ChildProcess() {
  closeDescriptor(input_);
  closeDescriptor(outputPipe_);
  closeDescriptor(errorPipe_);
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void ChildProcess::writeInput(const std::string& text) {
  if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("the child does not read its input");
  }
}

void ChildProcess::closeInput() {
  closeDescriptor(input_);
}

void ChildProcess::signal(int number) {
  if (pid_ > 0) kill(pid_, number);
}

// False when both streams have ended or the deadline has passed.
bool ChildProcess::readSome(double deadline) {
  if (outputPipe_ < 0 && errorPipe_ < 0) return false;
  pollfd watched[2] = {{outputPipe_, POLLIN, 0}, {errorPipe_, POLLIN, 0}};
  const int milliseconds = static_cast<int>(std::max(0.0, (deadline - now()) * 1000));
  const int ready = poll(watched, 2, milliseconds);
  if (ready < 0) return errno == EINTR;
  if (ready == 0) return false;
  if (watched[0].revents != 0) readInto(outputPipe_, output_);
  if (watched[1].revents != 0) readInto(errorPipe_, error_);
  return true;
}

bool ChildProcess::waitFor(const std::string& stream, const std::string& text, double seconds) {
  const double deadline = now() + seconds;
  while (stream.find(text) == std::string::npos) {
    if (!readSome(deadline)) return stream.find(text) != std::string::npos;
  }
  return true;
}

bool ChildProcess::waitForOutput(const std::string& text, double seconds) {
  return waitFor(output_, text, seconds);
}

bool ChildProcess::waitForError(const std::string& text, double seconds) {
  return waitFor(error_, text, seconds);
}

int ChildProcess::wait(double seconds) {
  const double deadline = now() + seconds;
  while (readSome(deadline)) {
  }
  if (outputPipe_ >= 0 || errorPipe_ >= 0) return -1;
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

TemporaryFolder::TemporaryFolder() {
  std::string pattern = std::filesystem::temp_directory_path() / "qvr-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp");
  }
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::write(const std::string& name, const std::string& content) const {
  const std::string path = file(name);
  std::ofstream(path, std::ios::binary) << content;
  chmod(path.c_str(), S_IRUSR | S_IWUSR);
  return path;
}

}  // namespace support
