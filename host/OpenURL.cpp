// `open-url`: what the desktop runs when the browser is redirected. It hands the redirect to the
// sign-in that waits for it.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>

#include "host/Command.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/Paths.h"
#include "host/RedirectSocket.h"
#include "host/Redirects.h"
#include "host/WithoutEcho.h"

namespace host {
namespace {

// For whoever pastes it.
constexpr std::chrono::milliseconds kInputDeadline(120'000);

// The first line of standard input, up to one byte more than the longest redirect; without the
// white space behind it. What has not come in time is missing.
std::string urlFromInput() {
  std::optional<WithoutEcho> silence;  // it holds a code
  if (isTerminal(STDIN_FILENO)) silence.emplace(STDIN_FILENO);
  const auto deadline = deadlineAfter(kInputDeadline);
  std::string url;
  char buffer[16384];
  while (url.size() <= kMaximumRedirectSize && url.find('\n') == std::string::npos) {
    if (!isReadyBefore(deadline, STDIN_FILENO, POLLIN)) break;
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) break;
    url.append(buffer, static_cast<std::size_t>(count));
  }
  url.resize(url.substr(0, url.find('\n')).find_last_not_of(" \t\r") + 1);
  return url;
}

}  // namespace

int openURL(const std::string& argument) {
  const Delivery delivery =
      deliverRedirect(argument == "-" ? urlFromInput() : argument, runtimeFolder());
  if (!delivery.isDone) {
    sayThatRedirectFailed(delivery.sentence);
    return kFailed;
  }
  say(delivery.sentence);
  return kDone;
}

}  // namespace host
