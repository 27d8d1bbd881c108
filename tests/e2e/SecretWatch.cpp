#include "tests/e2e/SecretWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace e2e {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kDeadline = std::chrono::seconds(90);

// Reads what strace writes: texts in quotation marks, with the escapes of C, and lists of them.
class LineReader {
 public:
  explicit LineReader(const std::string& line) : line_(line) {}

  std::string until(char end) {
    const std::size_t start = at_;
    while (peek() != end)
      ++at_;
    return line_.substr(start, at_++ - start);
  }

  std::string text() {
    expect('"');
    std::string result;
    while (peek() != '"')
      result += peek() == '\\' ? escaped() : next();
    expect('"');
    if (line_.compare(at_, 3, "...") == 0) throw std::runtime_error("strace cut a text");
    return result;
  }

  std::vector<std::string> list() {
    std::vector<std::string> texts;
    expect('[');
    while (peek() != ']') {
      if (!texts.empty()) separator();
      texts.push_back(text());
    }
    expect(']');
    return texts;
  }

  void separator() {
    expect(',');
    expect(' ');
  }

 private:
  char peek() const {
    if (at_ == line_.size()) throw std::runtime_error("strace wrote half a line: " + line_);
    return line_[at_];
  }

  char next() {
    const char c = peek();
    ++at_;
    return c;
  }

  void expect(char c) {
    if (next() != c) throw std::runtime_error("strace wrote something else: " + line_);
  }

  // One to three octal digits, or a letter.
  char escaped() {
    expect('\\');
    static const std::string kLetters = "tnvfr";
    if (const std::size_t letter = kLetters.find(peek()); letter != std::string::npos) {
      next();
      return "\t\n\v\f\r"[letter];
    }
    int value = 0;
    int digits = 0;
    for (; digits < 3 && peek() >= '0' && peek() <= '7'; ++digits)
      value = value * 8 + (next() - '0');
    return digits > 0 ? static_cast<char>(value) : next();
  }

  const std::string& line_;
  std::size_t at_ = 0;
};

}  // namespace

Execution parsedExecution(const std::string& line) {
  LineReader reader(line);
  Execution execution;
  execution.process = reader.until(' ');
  reader.until('(');
  execution.path = reader.text();
  reader.separator();
  execution.arguments = reader.list();
  reader.separator();
  execution.environment = reader.list();
  return execution;
}

SecretWatch::SecretWatch(std::string pipe) : path_(std::move(pipe)) {
  if (mkfifo(path_.c_str(), S_IRUSR | S_IWUSR) != 0) throw std::runtime_error("no FIFO " + path_);
  pipe_ = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  reader_ = std::thread([this] { read(); });
}

SecretWatch::~SecretWatch() {
  if (reader_.joinable()) reader_.join();
  close(pipe_);
  unlink(path_.c_str());
}

// To the end of the last writer, before which there is a first one: a pipe that nobody has opened
// yet is neither readable nor at its end for poll().
void SecretWatch::read() {
  const auto end = Clock::now() + kDeadline;
  while (!isComplete_) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    pollfd waiting = {pipe_, POLLIN, 0};
    if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) return;
    char buffer[65536];
    const ssize_t size = ::read(pipe_, buffer, sizeof buffer);
    if (size > 0) written_.append(buffer, static_cast<std::size_t>(size));
    isComplete_ = size == 0;
  }
}

std::vector<std::string> SecretWatch::wrapped(const std::vector<std::string>& arguments) const {
  std::vector<std::string> all = {"strace",
                                  "--daemonize",
                                  "--follow-forks",
                                  "--seccomp-bpf",
                                  "-qqq",
                                  "--no-abbrev",
                                  "--string-limit=1000000",
                                  "--signal=none",
                                  "--output=" + path_,
                                  "--trace=execve,execveat"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

std::vector<Execution> SecretWatch::finish() {
  reader_.join();
  if (!isComplete_) throw std::runtime_error("a process that the command started does not end");
  std::vector<Execution> executions;
  std::istringstream lines(written_);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" execve(") != std::string::npos)
      executions.push_back(parsedExecution(line));
    else if (line.find(" execveat(") != std::string::npos)
      throw std::runtime_error("a program was executed by its descriptor: " + line);
  }
  return executions;
}

}  // namespace e2e
