#include <cmath>
#include <string>

#include "host/DoctorEndpoints.h"

namespace host {
namespace {

constexpr double kTolerableSkewSeconds = 60;
constexpr const char* kName = "clock";
constexpr const char* kRemedy =
    "Set this computer's clock, or let the network set it: `timedatectl set-ntp true`";

// By how many seconds this computer is ahead of the server.
double skewOf(const EndpointAnswer& answer) {
  return answer.localTime.timeIntervalSinceReferenceDate -
         answer.serverTime->timeIntervalSinceReferenceDate;
}

std::optional<double> leastSkew(const EndpointAnswers& answers) {
  std::optional<double> least;
  for (const EndpointAnswer& answer : answers) {
    if (!answer.serverTime) continue;
    const double skew = skewOf(answer);
    if (!least || std::abs(skew) < std::abs(*least)) least = skew;
  }
  return least;
}

}  // namespace

Check checkClock(const EndpointAnswers& answers) {
  const std::optional<double> skew = leastSkew(answers);
  if (!skew) {
    return Check::unchecked(kName, "no server said what time it is.",
                            "See to it that a server answers, and run `qvr-oauth2 doctor` again.");
  }
  const std::string seconds = std::to_string(std::llround(std::abs(*skew)));
  const std::string begin = "This computer's clock is " + seconds + " s ";
  if (*skew > kTolerableSkewSeconds) {
    return Check::problem(kName,
                          begin +
                              "ahead of the server's: tokens look expired too early and are "
                              "refreshed needlessly, and certificates may look expired.",
                          kRemedy);
  }
  if (*skew < -kTolerableSkewSeconds) {
    return Check::problem(kName,
                          begin +
                              "behind the server's: mail servers refuse tokens that still look "
                              "fresh here, and certificates may look not valid yet.",
                          kRemedy);
  }
  return Check::ok(kName, "The difference to the server's clock is " + seconds + " s.");
}

}  // namespace host
