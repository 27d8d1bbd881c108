// The strings of `token --format`, sent to the mail server exactly as they are printed.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class SASLTest : public MailTest {
 protected:
  // What `token --format` prints, without its newline.
  std::string response(const std::vector<std::string>& format, const std::string& user = kUser) {
    std::vector<std::string> arguments{"token", provider(), user, "--format"};
    arguments.insert(arguments.end(), format.begin(), format.end());
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output.find('\n') + 1, result.output.size()) << "one line";
    return result.output.substr(0, result.output.find('\n'));
  }

  // The format of a mechanism, for the server that reads or the one that sends.
  std::vector<std::string> formatFor(const std::string& mechanism, const std::string& port) const {
    if (mechanism == "XOAUTH2") return {"xoauth2"};
    return {"oauthbearer", "--host", MailServer::kHost, "--port", port};
  }

  // Shows the text to a server. The program's arguments hold no secret.
  Result authenticate(const std::string& protocol, const std::string& mechanism,
                      const std::string& text) {
    const std::string port = protocol == "imap" ? server.imapPort() : server.smtpPort();
    return client({"python3", QVR_MAIL_FOLDER "/programs/authenticate.py", protocol, port,
                   counterpart.certificateAuthority(), mechanism, folder.write("response", text)});
  }

  void expectTaken(const std::string& mechanism, const std::string& user = kUser) {
    server.deliver(user, kSubject, kText);
    const Result read =
        authenticate("imap", mechanism, response(formatFor(mechanism, server.imapPort()), user));
    EXPECT_EQ(read.status, 0) << read.output << read.error << server.log();
    EXPECT_THAT(read.output, HasSubstr(kText));
    EXPECT_TRUE(server.waitForLog("method=" + mechanism)) << server.log();
    const Result send =
        authenticate("smtp", mechanism, response(formatFor(mechanism, server.smtpPort()), user));
    EXPECT_EQ(send.status, 0) << send.output << send.error << server.log();
  }

  void expectRefused(const std::string& mechanism, const std::string& text) {
    for (const char* const protocol : {"imap", "smtp"}) {
      const Result result = authenticate(protocol, mechanism, text);
      EXPECT_EQ(result.status, 1) << result.error;
      EXPECT_THAT(result.output, HasSubstr("refused: ")) << result.error;
      EXPECT_THAT(result.output, HasSubstr("uthentication fail")) << result.error;
    }
  }

  // From here on the token that is stored for the user is another user's.
  void storeTheTokenOfAnotherUser() {
    const Result result = run({"sign-in", provider(), kUser, "--timeout", "30"},
                              {{"BROWSER", browserFor("bob@example.com")}});
    ASSERT_EQ(result.status, 0) << result.error;
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, SASLTest, testing::Values("Google", "Microsoft"));

TEST_P(SASLTest, TheXOAUTH2StringLogsIn) {
  expectTaken("XOAUTH2");
}

TEST_P(SASLTest, AnXOAUTH2StringWithAnotherUsersTokenIsRefused) {
  ASSERT_NO_FATAL_FAILURE(storeTheTokenOfAnotherUser());
  expectRefused("XOAUTH2", response({"xoauth2"}));
  EXPECT_TRUE(server.waitForLog("did not match")) << server.log();
}

// One of the providers has no OAUTHBEARER.
class BearerTest : public SASLTest {};
INSTANTIATE_TEST_SUITE_P(Providers, BearerTest, testing::Values("Google"));

TEST_P(BearerTest, TheOAUTHBEARERStringLogsIn) {
  expectTaken("OAUTHBEARER");
}

TEST_P(BearerTest, TheOAUTHBEARERStringLogsInWithoutTheServersName) {
  const Result result = authenticate("imap", "OAUTHBEARER", response({"oauthbearer"}));
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
}

TEST_P(BearerTest, AUserNameWithACommaAndAnEqualsSignLogsIn) {
  const std::string user = "a,b=c@example.com";
  ASSERT_NO_FATAL_FAILURE(signIn(user));
  expectTaken("OAUTHBEARER", user);
  expectTaken("XOAUTH2", user);
}

TEST_P(BearerTest, AnOAUTHBEARERStringWithAnotherUsersTokenIsRefused) {
  ASSERT_NO_FATAL_FAILURE(storeTheTokenOfAnotherUser());
  expectRefused("OAUTHBEARER", response(formatFor("OAUTHBEARER", server.imapPort())));
  EXPECT_TRUE(server.waitForLog("did not match")) << server.log();
}

}  // namespace
}  // namespace e2e
