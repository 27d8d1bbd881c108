#include "host/DateText.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace host {
namespace {

using namespace std::chrono;

constexpr double sinceReferenceDate(sys_seconds point) {
  return static_cast<double>(point.time_since_epoch().count()) -
         qvr::kSecondsFromUnixEpochToReferenceDate;
}

constexpr double kEarliest = sinceReferenceDate(sys_days(year(0) / January / 1));
constexpr double kLatest =
    sinceReferenceDate(sys_days(year(9999) / December / 31) + seconds(86'399));

sys_seconds secondOf(qvr::Date date) {
  return sys_seconds(seconds(static_cast<std::int64_t>(std::floor(
      date.timeIntervalSinceReferenceDate + qvr::kSecondsFromUnixEpochToReferenceDate))));
}

struct Unit {
  const char* name;
  double seconds;
};

constexpr Unit kSecond = {"second", 1};
constexpr Unit kLongerUnits[] = {{"day", 86'400}, {"hour", 3'600}, {"minute", 60}};

Unit unitFor(double length) {
  const Unit* const unit =
      std::find_if(std::begin(kLongerUnits), std::end(kLongerUnits),
                   [length](const Unit& each) { return length >= 2 * each.seconds; });
  return unit == std::end(kLongerUnits) ? kSecond : *unit;
}

std::string inWords(double length) {
  const Unit unit = unitFor(length);
  const double count = std::floor(length / unit.seconds);
  char text[400];  // the longest number of this type has 309 digits
  std::snprintf(text, sizeof text, "%.0f %s%s", count, unit.name, count == 1 ? "" : "s");
  return text;
}

}  // namespace

qvr::Date writableDate(qvr::Date date) {
  return {std::fmax(kEarliest, std::fmin(date.timeIntervalSinceReferenceDate, kLatest))};
}

std::string rfc3339(qvr::Date date) {
  const sys_seconds second = secondOf(writableDate(date));
  const sys_days day = floor<days>(second);
  const year_month_day ymd(day);
  const hh_mm_ss time(second - day);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text;
}

std::string relativeTime(double seconds) {
  const double length = std::fabs(seconds);
  if (length < 1) return "now";
  return seconds > 0 ? "in " + inWords(length) : inWords(length) + " ago";
}

}  // namespace host
