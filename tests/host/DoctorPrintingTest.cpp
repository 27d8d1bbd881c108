// How `doctor` shows what it found.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/Console.h"
#include "host/DoctorPrinting.h"
#include "host/Secrets.h"
#include "tests/host/ParsedJSON.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(DoctorText, HasALineForEachCheckAndAnIndentedOneForItsRemedy) {
  EXPECT_EQ(textOf({Check::ok("browser", "It opens."),
                    Check::warning("session bus", "There is none.", "Start one."),
                    Check::problem("clock", "It is wrong.", "`set it`")}),
            "ok       browser: It opens.\n"
            "warning  session bus: There is none.\n"
            "         Start one.\n"
            "problem  clock: It is wrong.\n"
            "         `set it`\n");
}

TEST(DoctorText, SaysWhatCouldNotBeChecked) {
  EXPECT_EQ(textOf({Check::unchecked("clock", "there is no network.", "Connect.")}),
            "warning  clock: Could not be checked: there is no network.\n"
            "         Connect.\n");
}

TEST(DoctorJSON, IsOneObjectWithTheChecksAndTheNumberOfProblems) {
  EXPECT_EQ(
      jsonOf({Check::ok("a", "b"), Check::problem("c", "d", "e"), Check::problem("f", "g", "")}),
      R"({"checks":[{"name":"a","state":"ok","message":"b","remedy":""},)"
      R"({"name":"c","state":"problem","message":"d","remedy":"e"},)"
      R"({"name":"f","state":"problem","message":"g","remedy":""}],"problems":2})"
      "\n");
  EXPECT_EQ(jsonOf({}), "{\"checks\":[],\"problems\":0}\n");
}

TEST(DoctorJSON, EscapesWhatAPathMayHold) {
  const qvr::Value value =
      host_test::parsedJSON(jsonOf({Check::ok("x", "/a \"quoted\" \\ \xc3\xa9 name")}));
  const auto* const checks = value.find("checks")->as<qvr::Value::Array>();
  ASSERT_NE(checks, nullptr);
  EXPECT_EQ(checks->at(0).find("message")->text(), "/a \"quoted\" \\ \xc3\xa9 name");
}

TEST(DoctorPrinting, LeavesNothingOfControlCharactersAndOfBytesThatAreNoText) {
  const Checks checks = {Check::problem("x", "a\nproblem b\x1b[0m\xff\xc3", "c\td")};
  EXPECT_EQ(textOf(checks), "problem  x: a?problem b?[0m??\n         c?d\n");
  EXPECT_TRUE(isUTF8(jsonOf(checks)));
  host_test::parsedJSON(jsonOf(checks));
}

TEST(DoctorPrinting, ShowsNoSecret) {
  keepSecret("the-secret-of-doctor");
  const Checks checks = {
      Check::problem("x", "It is the-secret-of-doctor.", "the-secret-of-doctor")};
  EXPECT_THAT(textOf(checks),
              AllOf(HasSubstr("It is {length = 20}."), Not(HasSubstr("the-secret"))));
  EXPECT_THAT(jsonOf(checks), Not(HasSubstr("the-secret")));
}

}  // namespace
}  // namespace host
