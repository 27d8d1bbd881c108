#include "host/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

#include "QVROAuth2Client/platform/URL.h"
#include "host/Colour.h"
#include "host/Deadline.h"
#include "host/Secrets.h"

namespace host {
namespace {

constexpr std::size_t kLongestLine = 65'536;
constexpr std::chrono::milliseconds kWriteDeadline(60'000);
constexpr std::chrono::hours kLongestAnswer(24);  // who is asked may be away from the keyboard

// Of the word with which a warning begins; 0 for a sentence that is none.
std::size_t lengthOfWarning(std::string_view sentence) {
  for (const std::string_view word : {"warning:", "Warning:"}) {
    if (sentence.starts_with(word)) return word.size();
  }
  return 0;
}

// Takes the number of a closed stream by a file that the stream's direction does not fit, so that
// using it fails as it would have.
void occupy(int descriptor) {
  if (fcntl(descriptor, F_GETFD) >= 0) return;
  const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
  // The lowest free number is this one: the numbers below it were occupied before.
  (void)open("/dev/null", direction);
}

}  // namespace

void prepareStandardStreams() {
  signal(SIGPIPE, SIG_IGN);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    occupy(descriptor);
}

bool canWrite(int descriptor) {
  return isReadyBefore(deadlineAfter(kWriteDeadline), descriptor, POLLOUT);
}

// A pipe that takes anything takes this much without a wait.
bool writeAll(int descriptor, std::string_view text) {
  const auto deadline = deadlineAfter(kWriteDeadline);
  while (!text.empty()) {
    if (!isReadyBefore(deadline, descriptor, POLLOUT)) return false;
    const ssize_t written =
        write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      return false;
    }
  }
  return true;
}

bool writeOut(std::string_view text) {
  return writeAll(STDOUT_FILENO, text);
}

bool writeError(std::string_view text) {
  return writeAll(STDERR_FILENO, withoutSecrets(text));
}

void say(std::string_view sentence) {
  const std::size_t warning = lengthOfWarning(sentence);
  writeError(
      "qvr-oauth2: " + coloured(Colour::kYellow, sentence.substr(0, warning), STDERR_FILENO) +
      printable(sentence.substr(warning)) + "\n");
}

int report(const Failure& failure) {
  writeError(coloured(Colour::kRed, "qvr-oauth2:", STDERR_FILENO) + " " +
             printable(failure.sentence) + "\n");
  return failure.status;
}

Failure cannotWriteOutput() {
  return {kFailed, "Standard output cannot be written: somebody closed it, or the disk is full."};
}

bool isTerminal(int descriptor) {
  return isatty(descriptor) == 1;
}

std::optional<std::string> readLine() {
  const auto deadline = deadlineAfter(kLongestAnswer);
  std::string line;
  char byte = 0;
  while (line.size() < kLongestLine) {
    if (!isReadyBefore(deadline, STDIN_FILENO, POLLIN)) return std::nullopt;
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) return line.empty() ? std::nullopt : std::optional(line);
    if (byte == '\n') return line;
    line += byte;
  }
  return std::nullopt;
}

std::string printable(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    const bool isC1 = byte == 0xc2 && next >= 0x80 && next < 0xa0;
    result += byte < 0x20 || byte == 0x7f || isC1 ? '?' : text[i];
    if (isC1) ++i;
  }
  return result;
}

std::string shortened(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) return std::string(text);
  while (bytes > 0 && (text[bytes] & 0xc0) == 0x80)
    --bytes;
  return std::string(text.substr(0, bytes)) + "...";
}

// The URL's percent decoding knows what UTF-8 is.
bool isUTF8(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  std::string escaped = "x:/";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    escaped += {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
  }
  const auto url = qvr::URL::URLWithString(escaped);
  return url && url->path();
}

}  // namespace host
