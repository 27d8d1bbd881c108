// Dates, for programs and for people.
#include <gtest/gtest.h>

#include <limits>

#include "host/DateText.h"

namespace host_test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string textOfUnixTime(double seconds) {
  return host::rfc3339({seconds - qvr::kSecondsFromUnixEpochToReferenceDate});
}

TEST(RFC3339, IsTheTimeInUTC) {
  EXPECT_EQ(host::rfc3339({0}), "2001-01-01T00:00:00Z");
  EXPECT_EQ(textOfUnixTime(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(textOfUnixTime(784111777), "1994-11-06T08:49:37Z");
  EXPECT_EQ(textOfUnixTime(1709251199), "2024-02-29T23:59:59Z");
  EXPECT_EQ(textOfUnixTime(-1), "1969-12-31T23:59:59Z");
}

TEST(RFC3339, DropsThePartOfASecond) {
  EXPECT_EQ(textOfUnixTime(784111777.999), "1994-11-06T08:49:37Z");
  EXPECT_EQ(textOfUnixTime(-0.5), "1969-12-31T23:59:59Z");
}

TEST(RFC3339, HasFourDigitsForTheYearHoweverFarOff) {
  EXPECT_EQ(textOfUnixTime(253402300799), "9999-12-31T23:59:59Z");
  for (const double seconds : {253402300800.0, 1e300, kInfinity})
    EXPECT_EQ(textOfUnixTime(seconds), "9999-12-31T23:59:59Z");
  EXPECT_EQ(textOfUnixTime(-62167219200), "0000-01-01T00:00:00Z");
  for (const double seconds : {-62167219201.0, -1e300, -kInfinity})
    EXPECT_EQ(textOfUnixTime(seconds), "0000-01-01T00:00:00Z");
}

TEST(RelativeTime, IsInTheLargestUnitOfWhichThereAreTwo) {
  EXPECT_EQ(host::relativeTime(1), "in 1 second");
  EXPECT_EQ(host::relativeTime(119), "in 119 seconds");
  EXPECT_EQ(host::relativeTime(120), "in 2 minutes");
  EXPECT_EQ(host::relativeTime(42 * 60 + 59), "in 42 minutes");
  EXPECT_EQ(host::relativeTime(2 * 3600 - 1), "in 119 minutes");
  EXPECT_EQ(host::relativeTime(2 * 3600), "in 2 hours");
  EXPECT_EQ(host::relativeTime(2 * 86400 - 1), "in 47 hours");
  EXPECT_EQ(host::relativeTime(1000 * 86400.0), "in 1000 days");
}

TEST(RelativeTime, TellsThePastFromTheFuture) {
  EXPECT_EQ(host::relativeTime(-1), "1 second ago");
  EXPECT_EQ(host::relativeTime(-7 * 60), "7 minutes ago");
  EXPECT_EQ(host::relativeTime(-86400 * 2), "2 days ago");
  EXPECT_EQ(host::relativeTime(0), "now");
  EXPECT_EQ(host::relativeTime(0.9), "now");
  EXPECT_EQ(host::relativeTime(-0.9), "now");
}

TEST(RelativeTime, SurvivesEveryNumber) {
  const double longest = std::numeric_limits<double>::max();
  EXPECT_EQ(host::relativeTime(longest).substr(0, 3), "in ");
  EXPECT_EQ(host::relativeTime(-longest).substr(host::relativeTime(-longest).size() - 9),
            " days ago");
}

}  // namespace
}  // namespace host_test
