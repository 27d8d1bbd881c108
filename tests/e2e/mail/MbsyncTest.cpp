// mbsync of isync, with the SASL module of Debian's libsasl2-modules-kdexoauth2.

#include <filesystem>

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class MbsyncTest : public MailTest {
 protected:
  MbsyncTest() {
    install("mbsyncrc", ".mbsyncrc");
    std::filesystem::create_directories(folder.file("Mail/all"));
    deliver();
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, MbsyncTest, testing::Values("Google", "Microsoft"));

TEST_P(MbsyncTest, FetchesALetter) {
  const Result result = client({"mbsync", "work"});
  EXPECT_EQ(result.status, 0) << result.error << server.log();
  EXPECT_THAT(filesBelow("Mail"), HasSubstr(kText));
}

TEST_P(MbsyncTest, EndsAtOnceWithoutAToken) {
  ASSERT_EQ(run({"sign-out", provider(), kUser}).status, 0);
  const Result result = client({"mbsync", "work"});
  EXPECT_EQ(result.status, 1) << result.error;
  EXPECT_THAT(result.error, HasSubstr("sign-in")) << "the user is told what to do";
}

// mbsync 1.4 waits for ever when the server refuses its token, hence the guide's "timeout".
TEST_P(MbsyncTest, FetchesNothingWithATokenThatIsRefused) {
  printARefusedToken();
  const Result result = client({"mbsync", "work"}, 5);
  EXPECT_NE(result.status, 0);
  EXPECT_TRUE(server.waitForLog("oauth2 failed")) << server.log();
  EXPECT_THAT(filesBelow("Mail"), testing::Not(HasSubstr(kText)));
}

}  // namespace
}  // namespace e2e
