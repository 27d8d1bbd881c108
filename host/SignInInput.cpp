#include "host/SignInInput.h"

#include <unistd.h>

#include <cerrno>

#include "host/Console.h"
#include "host/RedirectSocket.h"

namespace host {

namespace {

std::string trimmed(const std::string& line) {
  constexpr const char* kWhiteSpace = " \t\r\n";
  const std::size_t start = line.find_first_not_of(kWhiteSpace);
  if (start == std::string::npos) return "";
  return line.substr(start, line.find_last_not_of(kWhiteSpace) - start + 1);
}

}  // namespace

PastedLines::PastedLines(int descriptor) : descriptor_(descriptor) {
  if (!isTerminal(descriptor)) return;
  if (isAnotherJobsTerminal(descriptor)) {
    descriptor_ = -1;
  } else {
    silence_.emplace(descriptor);
  }
}

std::vector<std::string> PastedLines::take() {
  char buffer[16384];
  const ssize_t size = read(descriptor_, buffer, sizeof buffer);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return {};
  if (size > 0) received_.append(buffer, static_cast<std::size_t>(size));
  if (size <= 0) {
    descriptor_ = -1;
    received_ += '\n';
  }
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = 0; (end = received_.find('\n', start)) != std::string::npos;
       start = end + 1) {
    const std::string line = trimmed(received_.substr(start, end - start));
    if (!line.empty()) lines.push_back(line);
  }
  received_.erase(0, start);
  // What is longer than any redirect is none.
  if (received_.size() > kMaximumRedirectSize) received_.clear();
  return lines;
}

}  // namespace host
