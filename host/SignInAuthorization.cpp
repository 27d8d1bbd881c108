// The browser's part of a sign-in: the address is shown and opened, and one loop waits for the
// redirect (from the session bus, from the socket, or pasted), for a signal and for the deadline.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <utility>

#include "QVROAuth2Client/platform/Desktop.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/Messages.h"
#include "host/NarratedText.h"
#include "host/Paths.h"
#include "host/Progress.h"
#include "host/RedirectSocket.h"
#include "host/Redirects.h"
#include "host/Secrets.h"
#include "host/SignIn.h"
#include "host/SignInInput.h"
#include "host/SignInState.h"
#include "host/SignInWorkspace.h"
#include "host/Signals.h"
#include "host/Steps.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kLongestWaitSeconds = 24 * 60 * 60;

// A bus that does not answer must not keep the user from signing in.
constexpr double kBusSeconds = 2;

// What the library's handler was called with.
struct Outcome {
  qvr::Ref<QVROAuth2AuthorizationResponse> response;
  qvr::ErrorPtr error;
};

// One attempt, on the thread that made it: redirects are delivered on it too, after the start.
class Attempt {
 public:
  Attempt(qvr::Ref<QVROAuth2PublicClient> client, const SignInOptions& options,
          const SignInEnvironment& environment)
      : client_(std::move(client)), options_(options), environment_(environment) {}

  // Ends what is still pending, and lets the workspace forget the attempt.
  ~Attempt() {
    signInWorkspace()->setPresenter(nullptr);
    client_->cancelRequestAuthorizationCode();
    leaveBus();
  }
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;

  // Nothing when there is an outcome.
  std::optional<Failure> run();
  const Outcome& outcome() const { return **outcome_; }

 private:
  // What became of a redirect, and, unless it was accepted, what was wrong with it.
  struct Taken {
    RedirectAnswer answer;
    std::string problem;
  };

  bool present(const qvr::URL& url);
  void listen();
  std::string waysOfRedirect() const;
  void leaveBus();
  void explain(const qvr::URL& url, bool opensBrowser) const;
  std::optional<Failure> wait();
  void takePasted(PastedLines& input, ProgressLine& progress);
  void takeFromBus();
  bool takeHandedOver(const std::string& redirect);
  Taken take(const std::string& redirect);
  std::string redirectStart() const { return client_->redirectURI().value_or(""); }
  Failure timedOut() const;

  const qvr::Ref<QVROAuth2PublicClient> client_;
  const SignInOptions& options_;
  const SignInEnvironment& environment_;
  double waitSeconds_ = 0;
  std::optional<std::string> state_;
  std::unique_ptr<RedirectListener> listener_;
  qvr::Ref<qvr::URLReceiver> receiver_;  // null without a bus
  // The library's handler holds it too, and may outlive the attempt.
  const std::shared_ptr<std::optional<Outcome>> outcome_ =
      std::make_shared<std::optional<Outcome>>();
};

std::optional<Failure> Attempt::run() {
  signInWorkspace()->setPresenter([this](const qvr::URL& url) { return present(url); });
  client_->requestAuthorizationCode(
      [outcome = outcome_](qvr::Ref<QVROAuth2AuthorizationResponse> response, qvr::ErrorPtr error) {
        *outcome = Outcome{std::move(response), std::move(error)};
      });
  return wait();
}

// Called by the library with the address, inside the start. The socket is there before the browser
// is: a redirect that comes at once waits in its queue. Without a browser the user takes the
// address, so the attempt goes on in any case.
bool Attempt::present(const qvr::URL& url) {
  state_ = stateInURL(url);
  if (stepsAreShown()) step("authorization request: " + narratedURL(url));
  listen();
  explain(url, options_.openBrowser);
  step(options_.openBrowser ? "starting the browser" : "no browser is wanted");
  if (options_.openBrowser && !environment_.browser->openURL(url))
    say("No browser could be opened here: open the address above in one yourself.");
  return true;
}

// The desktop hands redirects over in either of two ways, and one is enough.
void Attempt::listen() {
  if (!environment_.busName.empty())
    receiver_ = qvr::makeURLReceiver(
        {.busName = environment_.busName, .timeoutSeconds = secondsLeft(kBusSeconds)}, nullptr);
  std::optional<Failure> failure = makePrivateFolder(environment_.runtimeFolder);
  if (!failure)
    listener_ = RedirectListener::listen(environment_.runtimeFolder, state_.value_or(""), &failure);
  if (failure && !(receiver_ && receiver_->ownsName()))
    say("The browser's answer cannot come by itself and has to be pasted. " + failure->sentence);
  if (stepsAreShown()) step(waysOfRedirect());
}

std::string Attempt::waysOfRedirect() const {
  std::string ways = "the redirect may be pasted";
  if (listener_) ways += ", or come over the socket in " + environment_.runtimeFolder;
  if (receiver_)
    ways += std::string(", or come over the session bus") +
            (receiver_->ownsName() ? "" : " by way of who has the name") + " as " +
            environment_.busName;
  return ways;
}

// What still comes for another sign-in is passed on; for this one it is too late.
void Attempt::leaveBus() {
  if (!receiver_) return;
  listener_ = nullptr;
  receiver_->giveUpName([folder = environment_.runtimeFolder](const std::string& redirect) {
    return handOverRedirect(redirect, folder);
  });
}

void Attempt::explain(const qvr::URL& url, bool opensBrowser) const {
  const std::string who = printable(options_.account.username) + " at " + options_.account.provider;
  writeError(
      (opensBrowser ? "Your browser opens to sign in " + who + ". The address, should it not:\n\n"
                    : "Open this address in a browser to sign in " + who + ":\n\n") +
      url.absoluteString() +
      "\n\nOn a machine without a browser, open it on another one. When that browser ends at "
      "an address\nthat it cannot open (it begins with " +
      redirectStart() + "), paste the whole address here and press Enter.\n");
}

std::optional<Failure> Attempt::wait() {
  waitSeconds_ = secondsLeft(std::clamp(options_.timeoutSeconds, 0.0, kLongestWaitSeconds));
  const Clock::time_point deadline = deadlineAfter(
      std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(waitSeconds_)));
  ProgressLine progress(STDERR_FILENO);
  PastedLines input(environment_.input);
  while (!*outcome_) {
    const double left = std::chrono::duration<double>(deadline - Clock::now()).count();
    if (left <= 0) return timedOut();
    progress.show(waitingText(left));
    pollfd sources[] = {{environment_.signals, POLLIN, 0},
                        {listener_ ? listener_->fileDescriptor() : -1, POLLIN, 0},
                        {input.descriptor(), POLLIN, 0},
                        {receiver_ ? receiver_->fileDescriptor() : -1, POLLIN, 0}};
    // Only a progress line needs to be woken before something happens.
    const double seconds = progress.isVisible() ? std::min(left, 1.0) : left;
    if (poll(sources, std::size(sources), static_cast<int>(std::ceil(seconds * 1000))) <= 0)
      continue;
    if (sources[0].revents != 0 && takeSignal(environment_.signals) != 0)
      return Failure{kFailed, "The sign-in was cancelled: nothing was stored."};
    if (sources[1].revents != 0)
      listener_->serve([this](const std::string& redirect) { return take(redirect).answer; });
    if (sources[2].revents != 0) takePasted(input, progress);
    if (sources[3].revents != 0) {
      progress.clear();  // it may say something
      takeFromBus();
    }
  }
  return std::nullopt;
}

void Attempt::takePasted(PastedLines& input, ProgressLine& progress) {
  for (const std::string& line : input.take()) {
    const Taken taken = take(line);
    if (taken.problem.empty()) return;
    progress.clear();
    say(taken.problem);
  }
}

void Attempt::takeFromBus() {
  if (receiver_->process([this](const std::string& redirect) { return takeHandedOver(redirect); }))
    return;
  receiver_ = nullptr;
  if (!listener_) say("The session bus is gone, so the browser's answer has to be pasted.");
}

// The desktop hands over what any sign-in waits for: whoever has the name on the bus passes it on.
bool Attempt::takeHandedOver(const std::string& redirect) {
  const Taken taken = take(redirect);
  if (taken.answer == RedirectAnswer::kNotThisSignIn)
    return handOverRedirect(redirect, environment_.runtimeFolder);
  if (taken.answer != RedirectAnswer::kAccepted) sayThatRedirectFailed(taken.problem);
  return taken.answer == RedirectAnswer::kAccepted;
}

Attempt::Taken Attempt::take(const std::string& redirect) {
  const auto refused = [](std::string problem) {
    return Taken{RedirectAnswer::kRefused, std::move(problem)};
  };
  const std::string paste = " Paste the whole address that begins with " + redirectStart() + ".";
  const std::optional<qvr::URL> url = qvr::URL::URLWithString(redirect);
  if (stepsAreShown()) step("an address came: " + (url ? narratedURL(*url) : lengthOf(redirect)));
  if (!url || !url->scheme()) return refused("That is no address." + paste);
  const std::optional<std::string> state = stateInURL(*url);
  if (!state) return refused("That address does not say which sign-in it belongs to." + paste);
  if (state != state_)
    return {RedirectAnswer::kNotThisSignIn,
            "That address belongs to another sign-in: use the address above for this one."};
  if (*outcome_) return refused("This sign-in has its answer already.");
  QVROAuth2PublicClient::handleGetURLEvent({redirect, std::nullopt, std::nullopt});
  if (!*outcome_) return refused("That is not the address at which the browser ends." + paste);
  return {RedirectAnswer::kAccepted, ""};
}

Failure Attempt::timedOut() const {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, waitSeconds_ < 1 ? "%.1f" : "%.0f", waitSeconds_);
  return {kFailed, "Nobody finished the sign-in within " + std::string(seconds) +
                       " s: run the command again (--timeout gives more time), open the "
                       "address it prints, and if nothing happens after the consent page, paste "
                       "the address at which the browser ends."};
}

// A code that the exchange can send: text without a space.
std::variant<std::string, Failure> codeOf(const Outcome& outcome, const Account& account) {
  if (outcome.error) return failureForError(outcome.error, account);
  const qvr::Text code = outcome.response->code();
  if (!code || code->empty())
    return Failure{kFailed, account.provider +
                                " sent the browser back without a code, so nothing was stored: "
                                "sign in again."};
  keepSecret(*code);
  if (code->find(' ') != std::string::npos)
    return Failure{kFailed, account.provider +
                                " sent the browser back with a code that has a space in it, which "
                                "no code has: sign in again."};
  return *code;
}

}  // namespace

std::variant<std::string, Failure> authorize(const qvr::Ref<QVROAuth2PublicClient>& client,
                                             const SignInOptions& options,
                                             const SignInEnvironment& environment) {
  Attempt attempt(client, options, environment);
  if (std::optional<Failure> failure = attempt.run()) return *failure;
  return codeOf(attempt.outcome(), options.account);
}

}  // namespace host
