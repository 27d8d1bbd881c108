// Any number may be a timeout of an option.

#include <gtest/gtest.h>

#include <limits>

#include "src/ports/Milliseconds.h"

namespace ports_test {
namespace {

using qvr::millisecondsOf;
using std::chrono::milliseconds;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(MillisecondsTest, SecondsAreRoundedUp) {
  EXPECT_EQ(millisecondsOf(5), milliseconds(5000));
  EXPECT_EQ(millisecondsOf(0.25), milliseconds(250));
  EXPECT_EQ(millisecondsOf(0.0001), milliseconds(1));
}

TEST(MillisecondsTest, NothingIsLongerThanADay) {
  for (const double seconds : {86'400.0, 1e6, 1e300, kInfinity})
    EXPECT_EQ(millisecondsOf(seconds), std::chrono::hours(24)) << seconds;
}

TEST(MillisecondsTest, WhatIsNoTimeIsZero) {
  for (const double seconds :
       {0.0, -0.0, -1.0, -1e300, -kInfinity, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(millisecondsOf(seconds), milliseconds(0)) << seconds;
}

}  // namespace
}  // namespace ports_test
