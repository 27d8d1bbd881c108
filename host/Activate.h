// `activate`: the session bus starts it for a redirect while no sign-in has the bus name.
#pragma once

#include <string>

namespace host {

// How long it stays for more.
inline constexpr double kActivationIdleSeconds = 10;

// Has the name until nothing has come over the bus for this long, or the bus is gone.
int runActivation(const std::string& busName, double idleSeconds);

}  // namespace host
