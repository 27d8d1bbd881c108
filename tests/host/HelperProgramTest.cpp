// Programs that do something on the side.
#include <gtest/gtest.h>

#include "host/HelperProgram.h"

namespace host {
namespace {

constexpr double kLong = 30;

TEST(HelperProgramTest, ExitStatusTellsWhetherItWorked) {
  EXPECT_TRUE(runHelperProgram({"true"}, kLong));
  EXPECT_FALSE(runHelperProgram({"false"}, kLong));
}

TEST(HelperProgramTest, MissingProgramDidNotWork) {
  EXPECT_FALSE(runHelperProgram({"no-such-program-of-qvr"}, kLong));
}

TEST(HelperProgramTest, ArgumentsAreHandedOverAsTheyAre) {
  EXPECT_TRUE(runHelperProgram({"sh", "-c", "test \"$1\" = 'two words'", "-", "two words"}, kLong));
}

TEST(HelperProgramTest, OutputIsDiscarded) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_TRUE(runHelperProgram({"sh", "-c", "echo output; echo error >&2"}, kLong));
  EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
}

TEST(HelperProgramTest, ProgramIsEndedAtTheDeadline) {
  EXPECT_FALSE(runHelperProgram({"sleep", "3600"}, 0.1));
}

}  // namespace
}  // namespace host
