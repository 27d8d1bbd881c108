// fetchmail 6.4, which knows no OAuth: a plugin opens the connection and logs in.

#include <filesystem>

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

constexpr int kSocketError = 2;  // fetchmail's exit status

// "user=alice@example.com", "auth=Bearer refused", each with the mechanism's separator, in base64.
constexpr const char* kRefusedLogin =
    "dXNlcj1hbGljZUBleGFtcGxlLmNvbQFhdXRoPUJlYXJlciByZWZ1c2VkAQE=";

class FetchmailTest : public MailTest {
 protected:
  FetchmailTest() {
    install("fetchmailrc", ".fetchmailrc");
    std::filesystem::permissions(install("fetchmail-login", ".fetchmail-login"),
                                 std::filesystem::perms::owner_all);
    std::filesystem::create_directories(folder.file("Mail"));
    deliver();
  }

  // The lock is one for all of root's otherwise.
  Result fetch(const std::string& timeOut = "60") {
    return client({"fetchmail", "--nosyslog", "--timeout", timeOut, "--pidfile",
                   folder.file("fetchmail.pid")});
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, FetchmailTest, testing::Values("Google", "Microsoft"));

TEST_P(FetchmailTest, FetchesALetter) {
  const Result result = fetch();
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
  EXPECT_THAT(filesBelow("Mail"), HasSubstr(kText));
}

TEST_P(FetchmailTest, FetchesNothingWithoutAToken) {
  ASSERT_EQ(run({"sign-out", provider(), kUser}).status, 0);
  const Result result = fetch();
  EXPECT_EQ(result.status, kSocketError) << result.error;
  EXPECT_THAT(result.error, HasSubstr("sign-in")) << "the user is told what to do";
  EXPECT_EQ(filesBelow("Mail"), "");
}

// The server then waits for an answer, and fetchmail for the server.
TEST_P(FetchmailTest, GivesUpAfterItsTimeOutWhenTheTokenIsRefused) {
  printARefusedToken(kRefusedLogin);
  const Result result = fetch("4");
  EXPECT_EQ(result.status, kSocketError) << result.error;
  EXPECT_TRUE(server.waitForLog("oauth2 failed")) << server.log();
  EXPECT_EQ(filesBelow("Mail"), "");
}

}  // namespace
}  // namespace e2e
