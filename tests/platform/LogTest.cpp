// The library's log lines.

#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Log.h"
#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace qvr {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class LogTest : public support::LibraryTest {};

TEST_F(LogTest, ALineGoesToTheSinkAsItIs) {
  installHost();
  logLine("error: \"x\"");
  logLine("");
  EXPECT_THAT(*log, ElementsAre("error: \"x\"", ""));
}

TEST_F(LogTest, WhatAServerSentCannotMakeAnotherLine) {
  installHost();
  logLine("error: \"a\r\nb\tc\x7f\"");
  EXPECT_THAT(*log, ElementsAre("error: \"a  b c \""));
}

TEST_F(LogTest, AnErrorStandsAfterItsMethod) {
  installHost();
  logError("-[C m:]", Error::errorWithDomain("D", 3, support::described("T")));
  EXPECT_THAT(
      *log,
      ElementsAre("-[C m:]: Error Domain=D Code=3 \"T\" UserInfo={NSLocalizedDescription=T}"));
}

TEST_F(LogTest, ANullErrorPrintsAsNull) {
  installHost();
  logError("-[C m:]", nullptr);
  EXPECT_THAT(*log, ElementsAre("-[C m:]: (null)"));
}

TEST_F(LogTest, ABodyIsNotLogged) {
  installHost();
  logError("m", Error::errorWithDomain("D", 3, support::entry("body", support::bytes("s3cret"))));
  EXPECT_THAT(*log, ElementsAre(Not(HasSubstr("s3cret"))));
}

TEST_F(LogTest, WithoutASinkLinesGoToStandardError) {
  host.setLogSink(nullptr);
  installHost();
  testing::internal::CaptureStderr();
  logLine("one line");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("] one line\n"));
}

}  // namespace
}  // namespace qvr
