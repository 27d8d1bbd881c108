#include "host/Steps.h"

#include <atomic>
#include <chrono>
#include <cstdio>

#include "host/Console.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> areShown = false;
std::atomic<Clock::rep> start = 0;

std::string secondsSinceStart() {
  const Clock::duration passed(Clock::now().time_since_epoch().count() - start);
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", std::chrono::duration<double>(passed).count());
  return text;
}

}  // namespace

void showSteps(bool on) {
  start = Clock::now().time_since_epoch().count();
  areShown = on;
}

bool stepsAreShown() {
  return areShown;
}

void step(std::string_view sentence) {
  if (!areShown) return;
  say("[" + secondsSinceStart() + "] " + std::string(sentence));
}

std::string lengthOf(std::string_view secret) {
  return "{length = " + std::to_string(secret.size()) + "}";
}

}  // namespace host
