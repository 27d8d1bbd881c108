// When to try again, as an answer says and as the user is told.
#include <gtest/gtest.h>

#include <limits>
#include <optional>

#include "host/RetryAfter.h"

namespace host {
namespace {

constexpr const char* kSent = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr qvr::Date kNow{784111777.0 - qvr::kSecondsFromUnixEpochToReferenceDate};  // the same

std::optional<double> secondsIn(qvr::HTTPHeaders headers, qvr::Date now = kNow) {
  return retryAfterSeconds({503, std::move(headers)}, now);
}

TEST(RetryAfter, TakesANumberOfSeconds) {
  struct {
    const char* value;
    double seconds;
  } const cases[] = {
      {"0", 0},
      {"1", 1},
      {"120", 120},
      {" \t30 ", 30},
      {"0007", 7},
      {"86400", 86400},
      {"99999999999999999999999999999999", 1e15},
  };
  for (const auto& [value, seconds] : cases)
    EXPECT_EQ(secondsIn({{"Retry-After", value}}), seconds) << value;
}

TEST(RetryAfter, IsAbsentWithoutAFieldThatSaysAnything) {
  EXPECT_FALSE(secondsIn({}));
  EXPECT_FALSE(secondsIn({{"Date", kSent}}));
  for (const char* const value :
       {"", " ", "-5", "+5", "1.5", "5s", "5 6", "5, 6", "soon", "0x10", "١",
        "Sunday, 06-Nov-94 08:49:37 GMT", "Mon, 06 Nov 1994 08:49:37 GMT"})
    EXPECT_FALSE(secondsIn({{"Retry-After", value}})) << value;
}

TEST(RetryAfter, CountsADateFromTheAnswersOwn) {
  const qvr::Date wrongClock{kNow.timeIntervalSinceReferenceDate + 86400};
  const qvr::HTTPHeaders headers = {{"Date", kSent},
                                    {"Retry-After", "Sun, 06 Nov 1994 08:51:37 GMT"}};
  EXPECT_EQ(secondsIn(headers), 120);
  EXPECT_EQ(secondsIn(headers, wrongClock), 120);
}

TEST(RetryAfter, CountsADateFromNowWhenTheAnswerHasNoneToRead) {
  const qvr::Date earlier{kNow.timeIntervalSinceReferenceDate - 0.5};
  EXPECT_EQ(secondsIn({{"Retry-After", "Sun, 06 Nov 1994 08:50:37 GMT"}}, earlier), 60.5);
  EXPECT_EQ(secondsIn({{"Date", "yesterday"}, {"Retry-After", "Sun, 06 Nov 1994 08:50:37 GMT"}}),
            60);
}

TEST(RetryAfter, ADateThatHasPassedIsNow) {
  EXPECT_EQ(secondsIn({{"Retry-After", "Sun, 06 Nov 1994 08:49:36 GMT"}}), 0);
  EXPECT_EQ(secondsIn({{"Retry-After", kSent}}), 0);
}

TEST(RetryAfter, TheFirstOfSeveralFieldsCountsWhateverTheCaseOfItsName) {
  EXPECT_EQ(secondsIn({{"retry-after", "3"}, {"Retry-After", "4"}}), 3);
  EXPECT_FALSE(secondsIn({{"RETRY-AFTER", "soon"}, {"Retry-After", "4"}}));
}

TEST(RetryAfter, IsToldInRoundedUpWords) {
  struct {
    std::optional<double> seconds;
    const char* sentence;
  } const cases[] = {
      {std::nullopt, "Try again later."},
      {0, "Try again later."},
      {-1, "Try again later."},
      {std::numeric_limits<double>::quiet_NaN(), "Try again later."},
      {std::numeric_limits<double>::infinity(), "Try again later."},
      {0.2, "Try again in 1 second."},
      {1, "Try again in 1 second."},
      {1.2, "Try again in 2 seconds."},
      {30, "Try again in 30 seconds."},
      {90, "Try again in 90 seconds."},
      {91, "Try again in 2 minutes."},
      {300, "Try again in 5 minutes."},
      {301, "Try again in 6 minutes."},
      {5400, "Try again in 90 minutes."},
      {5401, "Try again in about 2 hours."},
      {7200, "Try again in about 2 hours."},
      {86400, "Try again in about 24 hours."},
      {86401, "Try again later."},
      {1e15, "Try again later."},
  };
  for (const auto& [seconds, sentence] : cases)
    EXPECT_EQ(tryAgainSentence(seconds), sentence) << seconds.value_or(-99);
}

TEST(TransientStatus, IsThatOfAServerWhichMayAnswerOtherwiseLater) {
  for (const int status : {408, 429, 500, 502, 503, 504, 599})
    EXPECT_TRUE(isTransientStatus(status)) << status;
  for (const int status : {0, 200, 204, 302, 400, 401, 403, 404, 407, 409, 428, 430, 499, 600})
    EXPECT_FALSE(isTransientStatus(status)) << status;
}

}  // namespace
}  // namespace host
