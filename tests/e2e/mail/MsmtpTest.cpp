// msmtp, as a mail program's "sendmail".

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

class MsmtpTest : public MailTest {
 protected:
  MsmtpTest() { install("msmtprc", ".msmtprc"); }

  Result send() {
    return client({"sh", "-c",
                   std::string("printf 'Subject: from-msmtp\\n\\nHello.\\n' | msmtp ") + kFriend});
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, MsmtpTest, testing::Values("Google", "Microsoft"));

TEST_P(MsmtpTest, SendsALetter) {
  const Result result = send();
  EXPECT_EQ(result.status, 0) << result.error << server.log();
  expectSent("from-msmtp");
}

TEST_P(MsmtpTest, SendsNothingWithoutAToken) {
  ASSERT_EQ(run({"sign-out", provider(), kUser}).status, 0);
  const Result result = send();
  EXPECT_THAT(result.status, testing::AllOf(testing::Ne(0), testing::Ne(124))) << result.error;
  EXPECT_THAT(result.error, HasSubstr("sign-in")) << "the user is told what to do";
  EXPECT_THAT(server.sent(), Not(HasSubstr("Subject: from-msmtp")));
}

}  // namespace
}  // namespace e2e
