#include "host/RetryAfter.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "host/HTTPDate.h"
#include "host/HeaderField.h"

namespace host {
namespace {

constexpr double kMinute = 60;
constexpr double kHour = 60 * kMinute;
constexpr double kDay = 24 * kHour;
constexpr std::string_view kDigits = "0123456789";

// A number of any length; one that is too large to matter is merely large.
double number(std::string_view digits) {
  double value = 0;
  for (const char digit : digits)
    value = std::min(value * 10 + (digit - '0'), 1e15);
  return value;
}

std::string inUnits(double seconds, double unit, const std::string& name) {
  const auto count = static_cast<std::int64_t>(std::ceil(seconds / unit));
  return std::to_string(count) + " " + name + (count == 1 ? "." : "s.");
}

}  // namespace

std::optional<double> retryAfterSeconds(const qvr::HTTPURLResponse& response, qvr::Date now) {
  const auto value = headerField(response, "Retry-After");
  if (!value || value->empty()) return std::nullopt;
  if (value->find_first_not_of(kDigits) == std::string_view::npos) return number(*value);
  const auto date = dateFromHTTP(*value);
  if (!date) return std::nullopt;
  const auto sent = dateFromHTTP(headerField(response, "Date").value_or(""));
  const double start = sent.value_or(now).timeIntervalSinceReferenceDate;
  return std::max(0.0, date->timeIntervalSinceReferenceDate - start);
}

std::string tryAgainSentence(std::optional<double> seconds) {
  if (!seconds || !(*seconds > 0) || *seconds > kDay) return "Try again later.";
  if (*seconds <= 90) return "Try again in " + inUnits(*seconds, 1, "second");
  if (*seconds <= 90 * kMinute) return "Try again in " + inUnits(*seconds, kMinute, "minute");
  return "Try again in about " + inUnits(*seconds, kHour, "hour");
}

bool isTransientStatus(std::int64_t status) {
  return (status >= 500 && status <= 599) || status == 429 || status == 408;
}

}  // namespace host
