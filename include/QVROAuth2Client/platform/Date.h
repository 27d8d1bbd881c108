// A point in time.
#pragma once

#include <compare>
#include <functional>

namespace qvr {
inline namespace v1 {

// Seconds between the Unix epoch and the reference date.
inline constexpr double kSecondsFromUnixEpochToReferenceDate = 978307200.0;

struct Date {
  // Seconds since 2001-01-01 00:00:00 UTC.
  double timeIntervalSinceReferenceDate = 0;

  friend auto operator<=>(const Date&, const Date&) = default;
};

// Answers the current time; called on any thread.
using Clock = std::function<Date()>;

}  // namespace v1
}  // namespace qvr
