#include "host/Activate.h"

#include <poll.h>

#include <cmath>

#include "QVROAuth2Client/platform/Desktop.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/Paths.h"
#include "host/Redirects.h"

namespace host {
namespace {

// For the bus to answer.
constexpr double kBusSeconds = 5;

}  // namespace

int runActivation(const std::string& busName, double idleSeconds) {
  std::string problem;
  const auto receiver = qvr::makeURLReceiver(
      {.busName = busName, .timeoutSeconds = secondsLeft(kBusSeconds)}, &problem);
  if (!receiver) return report({kFailed, problem});
  const auto handOver = [folder = runtimeFolder()](const std::string& url) {
    return handOverRedirect(url, folder);
  };
  pollfd events{receiver->fileDescriptor(), POLLIN, 0};
  while (poll(&events, 1, static_cast<int>(std::ceil(secondsLeft(idleSeconds) * 1000))) > 0) {
    if (!receiver->process(handOver)) return kDone;
  }
  receiver->giveUpName(handOver);
  return kDone;
}

int activate(const std::string& busName) {
  return runActivation(busName, kActivationIdleSeconds);
}

}  // namespace host
