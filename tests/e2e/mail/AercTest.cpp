// aerc, on a terminal.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

class AercTest : public MailTest {
 protected:
  AercTest() { install("aerc-accounts.conf", "config/aerc/accounts.conf"); }
};
INSTANTIATE_TEST_SUITE_P(Providers, AercTest, testing::Values("Google", "Microsoft"));

TEST_P(AercTest, ShowsALetter) {
  deliver();
  const Result result = onTerminal({std::string("see ") + kSubject, "type :pipe -m cat\r",
                                    std::string("see ") + kText, "type q", "type :quit\r"},
                                   {"aerc"});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
}

TEST_P(AercTest, SendsALetter) {
  const Result result = onTerminal(
      {"see Connected",
       std::string("type :compose -H \"To: ") + kFriend + "\" -H \"Subject: from-aerc\"\r",
       "see Send this email", "type :send\r", "see sent.", "type :quit\r"},
      {"env", "EDITOR=true", "aerc"});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
  expectSent("from-aerc");
}

}  // namespace
}  // namespace e2e
