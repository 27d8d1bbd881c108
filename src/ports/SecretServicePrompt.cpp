#include "src/ports/SecretServicePrompt.h"

#include <algorithm>
#include <string_view>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "src/ports/BusLibrary.h"
#include "src/ports/SecretServiceErrors.h"

namespace qvr {

namespace {

constexpr const char* kPromptInterface = "org.freedesktop.Secret.Prompt";
constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

// Faster than this is no person. A prompter that finds no display takes up to 0.2 s to say so.
constexpr std::chrono::milliseconds kShortestPerson{700};

enum class Outcome { kWaiting, kAccepted, kDismissed, kServiceGone };

Outcome outcomeOf(sd_bus_message* completed) {
  int isDismissed = 1;
  BusLibrary::shared().sd_bus_message_read(completed, "b", &isDismissed);
  return isDismissed != 0 ? Outcome::kDismissed : Outcome::kAccepted;
}

bool tellsThatNameIsGone(sd_bus_message* nameOwnerChanged, std::string_view name) {
  const char* changed = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  const int result =
      BusLibrary::shared().sd_bus_message_read(nameOwnerChanged, "sss", &changed, &before, &after);
  return result > 0 && changed == name && *after == '\0';
}

// Calls Prompt; a service that keeps the answer back may be showing the prompt all the same.
void start(BusConnection& bus, const SecretServicePrompt& prompt, const Outcome& outcome) {
  BusMessage message = bus.makeCall(prompt.service, prompt.path, kPromptInterface, "Prompt");
  if (message) BusLibrary::shared().sd_bus_message_append(message.get(), "s", "");
  const BusReply reply = bus.call(std::move(message), prompt.callTimeout);
  if (reply.kind == BusReply::Kind::kTimedOut || outcome != Outcome::kWaiting) return;
  requireAnswer(reply, SecretServiceObject::kOther);
}

}  // namespace

void completeSecretServicePrompt(BusConnection& bus, const SecretServicePrompt& prompt) {
  Outcome outcome = Outcome::kWaiting;
  const auto completed =
      bus.subscribe(prompt.service, prompt.path, kPromptInterface, "Completed",
                    [&outcome](sd_bus_message* signal) { outcome = outcomeOf(signal); });
  const auto changed =
      bus.subscribe(kBusName, kBusPath, kBusName, "NameOwnerChanged", [&](sd_bus_message* signal) {
        if (tellsThatNameIsGone(signal, prompt.service)) outcome = Outcome::kServiceGone;
      });
  if (!completed || !changed) throw secretServiceDied();  // what they tell would be missed
  const BusConnection::Clock::time_point started = BusConnection::Clock::now();
  start(bus, prompt, outcome);
  const auto isOver = [&outcome] { return outcome != Outcome::kWaiting; };
  const bool isAnswered =
      bus.processUntil(isOver, started + std::min(kShortestPerson, prompt.promptTimeout));
  const bool isQuick = isAnswered && BusConnection::Clock::now() - started < kShortestPerson;
  if (!isAnswered && !bus.isLost()) {
    if (prompt.isShown) prompt.isShown();
    bus.processUntil(isOver, started + prompt.promptTimeout);
  }
  if (outcome == Outcome::kAccepted) return;
  if (outcome == Outcome::kServiceGone || bus.isLost()) throw secretServiceDied();
  const bool saidNo = outcome == Outcome::kDismissed && !isQuick;
  throw saidNo ? SecretServiceFailure{errSecUserCanceled, "The user did not unlock the keyring."}
               : keyringIsLocked();
}

}  // namespace qvr
