// curl, which picks the mechanism by itself: OAUTHBEARER where the server offers it.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class CurlTest : public MailTest {
 protected:
  // Runs a recipe of shell lines in the home.
  Result runRecipe(const std::string& name) {
    install(name, name);
    return client({"sh", "-c", "cd && . ./" + name});
  }

  std::string mechanism() const {
    return provider() == "Google" ? "method=OAUTHBEARER" : "method=XOAUTH2";
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, CurlTest, testing::Values("Google", "Microsoft"));

TEST_P(CurlTest, FetchesALetter) {
  deliver();
  const Result result = runRecipe("curl-fetch");
  EXPECT_EQ(result.status, 0) << result.error << server.log();
  EXPECT_THAT(result.output, HasSubstr(kText));
  EXPECT_TRUE(server.waitForLog(mechanism())) << server.log();
}

TEST_P(CurlTest, SendsALetter) {
  folder.write("letter.eml", "From: alice@example.com\r\nSubject: from-curl\r\n\r\nHello.\r\n");
  const Result result = runRecipe("curl-send");
  EXPECT_EQ(result.status, 0) << result.error << server.log();
  expectSent("from-curl");
}

}  // namespace
}  // namespace e2e
