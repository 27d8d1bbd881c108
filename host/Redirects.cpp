#include "host/Redirects.h"

#include <algorithm>
#include <chrono>

#include "QVROAuth2Client/platform/Desktop.h"
#include "QVROAuth2Client/platform/URL.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/NarratedText.h"
#include "host/Paths.h"
#include "host/RedirectSocket.h"
#include "host/SignInState.h"
#include "host/Steps.h"

namespace host {
namespace {

// Nothing waits for long for a notification.
constexpr double kNotificationSeconds = 3;

Delivery deliveryFor(RedirectAnswer answer) {
  constexpr const char* kSignInAgain =
      " Run `qvr-oauth2 sign-in` again and use the address it prints.";
  switch (answer) {
    case RedirectAnswer::kAccepted:
      return {true, "The redirect was handed to the sign-in that waits for it."};
    case RedirectAnswer::kNotThisSignIn:
      return {false, "The redirect belongs to another sign-in and was not used."};
    case RedirectAnswer::kRefused:
      return {false, "The sign-in that waits cannot use this address: it is not its redirect URI."};
    case RedirectAnswer::kNobodyWaiting:
      return {false, std::string("No sign-in waits for this redirect: it has ended, was "
                                 "cancelled, or has been answered already.") +
                         kSignInAgain};
    case RedirectAnswer::kNoAnswer:
      break;
  }
  return {false,
          std::string("The sign-in that waits for this redirect does not answer.") + kSignInAgain};
}

// Within the command's own time; none at all would stand for no limit.
RedirectPeer timelyPeer() {
  RedirectPeer peer;
  peer.deadline = std::max(timeLeft(peer.deadline), std::chrono::milliseconds(1));
  return peer;
}

}  // namespace

Delivery deliverRedirect(const std::string& url, const std::string& runtimeFolder) {
  if (url.size() > kMaximumRedirectSize)
    return {false, "The address is longer than 1 MiB, which no redirect is."};
  const auto parsed = qvr::URL::URLWithString(url);
  if (!parsed || !parsed->scheme())
    return {false, "That is not a URL: open-url takes the address of a redirect."};
  const auto state = stateInURL(*parsed);
  if (!state)
    return {false, "The address carries no state, so it belongs to no sign-in: nothing was done."};
  if (const auto failure = makePrivateFolder(runtimeFolder)) return {false, failure->sentence};
  step("handing over the redirect " + narratedURL(*parsed) + " in " + runtimeFolder);
  return deliveryFor(sendRedirect(runtimeFolder, *state, url, timelyPeer()));
}

void sayThatRedirectFailed(const std::string& sentence) {
  say(sentence);
  qvr::showNotification({.applicationName = "qvr-oauth2",
                         .summary = "The sign-in did not get its answer",
                         .body = sentence,
                         .timeoutSeconds = secondsLeft(kNotificationSeconds)});
}

bool handOverRedirect(const std::string& url, const std::string& runtimeFolder) {
  const Delivery delivery = deliverRedirect(url, runtimeFolder);
  if (!delivery.isDone) sayThatRedirectFailed(delivery.sentence);
  return delivery.isDone;
}

}  // namespace host
