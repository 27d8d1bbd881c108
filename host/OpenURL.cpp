// `open-url`: what the desktop runs when the browser is redirected. It hands the redirect to the
// sign-in that waits for it.
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "host/Command.h"
#include "host/Console.h"
#include "host/Paths.h"
#include "host/RedirectSocket.h"
#include "host/Redirects.h"
#include "host/WithoutEcho.h"

namespace host {
namespace {

// The first line of standard input, up to one byte more than the longest redirect; without the
// white space behind it.
std::string urlFromInput() {
  std::optional<WithoutEcho> silence;  // it holds a code
  if (isTerminal(STDIN_FILENO)) silence.emplace(STDIN_FILENO);
  std::string url;
  char buffer[16384];
  while (url.size() <= kMaximumRedirectSize && url.find('\n') == std::string::npos) {
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
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
