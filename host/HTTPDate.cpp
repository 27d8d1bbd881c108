#include "host/HTTPDate.h"

#include <algorithm>
#include <chrono>

namespace host {
namespace {

using namespace std::chrono;

constexpr std::string_view kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::string_view kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::string_view kForm = "AAA, 00 AAA 0000 00:00:00 GMT";

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// "0" in the form stands for a digit and "A" for a letter, which the names check.
bool hasForm(std::string_view text) {
  return text.size() == kForm.size() &&
         std::equal(text.begin(), text.end(), kForm.begin(), [](char c, char form) {
           return form == '0' ? isDigit(c) : form == 'A' || c == form;
         });
}

unsigned number(std::string_view digits) {
  unsigned value = 0;
  for (const char c : digits)
    value = value * 10 + static_cast<unsigned>(c - '0');
  return value;
}

// The place of the name in the list; the list's size when it is not there.
template <std::size_t N>
unsigned indexOf(std::string_view name, const std::string_view (&names)[N]) {
  return static_cast<unsigned>(std::find(names, names + N, name) - names);
}

}  // namespace

std::optional<qvr::Date> dateFromHTTP(std::string_view text) {
  if (!hasForm(text)) return std::nullopt;
  const auto part = [text](std::size_t at, std::size_t size) { return text.substr(at, size); };
  const year_month_day date(year(static_cast<int>(number(part(12, 4)))),
                            month(indexOf(part(8, 3), kMonths) + 1), day(number(part(5, 2))));
  if (!date.ok() || weekday(sys_days(date)).c_encoding() != indexOf(part(0, 3), kDays))
    return std::nullopt;
  const unsigned hour = number(part(17, 2));
  const unsigned minute = number(part(20, 2));
  const unsigned second = number(part(23, 2));
  if (hour > 23 || minute > 59 || second > 60) return std::nullopt;
  const sys_seconds point = sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
  return qvr::Date{static_cast<double>(point.time_since_epoch().count()) -
                   qvr::kSecondsFromUnixEpochToReferenceDate};
}

}  // namespace host
