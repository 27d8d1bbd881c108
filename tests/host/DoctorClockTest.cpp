// `doctor` on the clock, and the dates it compares it with.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/DoctorEndpoints.h"
#include "host/HTTPDate.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using State = Check::State;

double unixTime(std::string_view text) {
  const auto date = dateFromHTTP(text);
  return date ? date->timeIntervalSinceReferenceDate + qvr::kSecondsFromUnixEpochToReferenceDate
              : -1;
}

TEST(DoctorDate, IsReadInTheFormThatServersSend) {
  EXPECT_EQ(unixTime("Sun, 06 Nov 1994 08:49:37 GMT"), 784111777);
  EXPECT_EQ(unixTime("Thu, 01 Jan 1970 00:00:00 GMT"), 0);
  EXPECT_EQ(unixTime("Thu, 29 Feb 2024 23:59:59 GMT"), 1709251199);
  EXPECT_EQ(unixTime("Sat, 31 Dec 2016 23:59:60 GMT"), 1483228800) << "a leap second";
}

TEST(DoctorDate, IsRefusedInEveryOther) {
  for (const char* const text : {"", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994",
                                 "Sun, 06 Nov 1994 08:49:37 UTC", "Sun, 06 Nov 1994 08:49:37 GMT ",
                                 " Sun, 06 Nov 1994 08:49:37 GMT", "sun, 06 nov 1994 08:49:37 gmt",
                                 "Sun, 6 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 8:49:37 GMT",
                                 "Sun, 06 Nov 1994 +8:49:37 GMT", "Sun, 06 Nov 1994 08:49:37"}) {
    EXPECT_FALSE(dateFromHTTP(text)) << text;
  }
}

TEST(DoctorDate, IsRefusedWhenThereIsNoSuchDay) {
  for (const char* const text : {"Mon, 06 Nov 1994 08:49:37 GMT", "Xxx, 06 Nov 1994 08:49:37 GMT",
                                 "Sun, 06 Xxx 1994 08:49:37 GMT", "Wed, 30 Feb 2000 00:00:00 GMT",
                                 "Wed, 29 Feb 2023 00:00:00 GMT", "Sun, 00 Nov 1994 00:00:00 GMT",
                                 "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 06 Nov 1994 08:60:00 GMT",
                                 "Sun, 06 Nov 1994 08:49:61 GMT"}) {
    EXPECT_FALSE(dateFromHTTP(text)) << text;
  }
}

// The answer of a server whose clock this computer's is ahead of by so many seconds.
EndpointAnswer answerWithSkew(double seconds) {
  return {"login.test", 0, qvr::Date{700000000}, qvr::Date{700000000 + seconds}};
}

TEST(DoctorClock, IsFineUpToAMinute) {
  for (const double skew : {-60.0, -1.0, 0.0, 0.9, 60.0})
    EXPECT_EQ(checkClock({answerWithSkew(skew)}).state, State::kOk) << skew;
}

TEST(DoctorClock, AheadIsNamedWithWhatItBreaks) {
  const Check check = checkClock({answerWithSkew(95.2)});
  EXPECT_EQ(check.state, State::kProblem);
  EXPECT_THAT(check.sentence,
              AllOf(HasSubstr("This computer's clock is 95 s ahead of the server's"),
                    HasSubstr("refreshed needlessly"), HasSubstr("may look expired")));
  EXPECT_THAT(check.remedy, HasSubstr("timedatectl set-ntp true"));
}

TEST(DoctorClock, BehindIsNamedWithWhatItBreaks) {
  const Check check = checkClock({answerWithSkew(-3600)});
  EXPECT_EQ(check.state, State::kProblem);
  EXPECT_THAT(check.sentence,
              AllOf(HasSubstr("This computer's clock is 3600 s behind the server's"),
                    HasSubstr("mail servers refuse tokens"), HasSubstr("not valid yet")));
}

TEST(DoctorClock, OneServerThatAgreesClearsIt) {
  EXPECT_EQ(checkClock({answerWithSkew(4000), answerWithSkew(-2)}).state, State::kOk);
  EXPECT_THAT(checkClock({answerWithSkew(4000), answerWithSkew(-90)}).sentence,
              HasSubstr("90 s behind"));
}

TEST(DoctorClock, CannotBeCheckedWithoutAServersTime) {
  const EndpointAnswer silent = {"login.test", qvr::NSURLErrorTimedOut, {}, qvr::Date{0}};
  for (const EndpointAnswers& answers : {EndpointAnswers{}, EndpointAnswers{silent}}) {
    const Check check = checkClock(answers);
    EXPECT_EQ(check.state, State::kWarning);
    EXPECT_THAT(check.sentence, HasSubstr("Could not be checked"));
  }
}

}  // namespace
}  // namespace host
