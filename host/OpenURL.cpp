// `open-url`: what the desktop runs when the browser is redirected. It hands the redirect to the
// sign-in that waits for it. The query of the URL holds a code, so no message repeats it.
#include "host/Command.h"
#include "host/Console.h"
#include "host/Paths.h"
#include "host/RedirectSocket.h"
#include "host/SignInState.h"

namespace host {

namespace {

constexpr const char* kSignInAgain =
    " Run `qvr-oauth2 sign-in` again and use the address it prints.";

int reportDelivery(RedirectAnswer answer) {
  const auto failed = [](const std::string& sentence) { return report({kFailed, sentence}); };
  switch (answer) {
    case RedirectAnswer::kAccepted:
      say("The redirect was handed to the sign-in that waits for it.");
      return kDone;
    case RedirectAnswer::kNotThisSignIn:
      return failed("The redirect belongs to another sign-in and was not used.");
    case RedirectAnswer::kRefused:
      return failed("The sign-in that waits cannot use this address: it is not its redirect URI.");
    case RedirectAnswer::kNobodyWaiting:
      return failed(std::string("No sign-in waits for this redirect: it has ended, was cancelled, "
                                "or has been answered already.") +
                    kSignInAgain);
    case RedirectAnswer::kNoAnswer:
      return failed(std::string("The sign-in that waits for this redirect does not answer.") +
                    kSignInAgain);
  }
  return kFailed;
}

}  // namespace

int openURL(const std::string& url) {
  if (url.size() > kMaximumRedirectSize)
    return report({kFailed, "The address is longer than 1 MiB, which no redirect is."});
  const auto parsed = qvr::URL::URLWithString(url);
  if (!parsed || !parsed->scheme())
    return report({kFailed, "That is not a URL: open-url takes the address of a redirect."});
  const auto state = stateInURL(*parsed);
  if (!state)
    return report(
        {kFailed, "The address carries no state, so it belongs to no sign-in: nothing was done."});
  const std::string folder = runtimeFolder();
  if (const auto failure = makePrivateFolder(folder)) return report(*failure);
  return reportDelivery(sendRedirect(folder, *state, url));
}

}  // namespace host
