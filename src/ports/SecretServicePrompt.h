// The prompts by which a Secret Service asks its user.
//
// A prompt does not mean a dialog: some services complete most of theirs by themselves within
// milliseconds. None is ever dismissed from here: a service is known that ends when one is.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "src/ports/BusConnection.h"

namespace qvr {

struct SecretServicePrompt {
  std::string service;  // the unique name
  std::string path;
  std::chrono::milliseconds callTimeout;
  std::chrono::milliseconds promptTimeout;
  std::function<void()> isShown;  // may be empty
};

// Starts the prompt and waits until it is completed. Throws SecretServiceFailure: dismissed faster
// than a person can means that there was nobody to ask, as does a prompt that nobody answers in
// time.
void completeSecretServicePrompt(BusConnection& bus, const SecretServicePrompt& prompt);

}  // namespace qvr
