// Which tokens the mail server takes: nothing but a live one of the same user's.

#include <chrono>

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kLoginDenied = 67;  // curl's exit status

class RefusalTest : public MailTest {
 protected:
  // What curl reads the user and the token from.
  std::string configuration(const std::string& user, const std::string& shown) {
    return folder.write("curl.conf",
                        "oauth2-bearer = \"" + shown + "\"\nuser = \"" + user + "\"\n");
  }

  // Shows the token to the IMAP server, as the user.
  Result logIn(const std::string& user, const std::string& shown) {
    const std::string secret = configuration(user, shown);
    return client({"curl", "--silent", "--show-error", "--config", secret,
                   "imaps://localhost:" + server.imapPort() + "/INBOX"});
  }

  // The same for the SMTP server, where the connection is encrypted from the start.
  Result logInToSend(const std::string& user, const std::string& shown) {
    const std::string secret = configuration(user, shown);
    const std::string letter = folder.write("letter.eml", "Subject: refused\r\n\r\n");
    return client({"curl", "--silent", "--show-error", "--config", secret, "--mail-from", user,
                   "--mail-rcpt", kFriend, "--upload-file", letter,
                   "smtps://localhost:" + server.smtpsPort()});
  }

  void expectRefused(const std::string& user, const std::string& shown) {
    EXPECT_EQ(logIn(user, shown).status, kLoginDenied) << server.log();
    EXPECT_EQ(logInToSend(user, shown).status, kLoginDenied) << server.log();
    EXPECT_TRUE(server.waitForLog("oauth2 failed")) << server.log();
    EXPECT_THAT(server.sent(), Not(HasSubstr("Subject: refused")));
  }

  // A token that is in the store and has expired since.
  std::string expiredToken() {
    counterpart.setAccessTokenSeconds(side(), 1);
    const Result result = run({"token", provider(), kUser, "--force-refresh"});
    counterpart.setAccessTokenSeconds(side(), 3600);
    const std::string expired = result.output.substr(0, result.output.find('\n'));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (counterpart.isActive(side(), expired) && std::chrono::steady_clock::now() < deadline) {
    }
    EXPECT_FALSE(counterpart.isActive(side(), expired)) << result.error;
    return expired;
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, RefusalTest, testing::Values("Google", "Microsoft"));

TEST_P(RefusalTest, ALiveTokenIsTaken) {
  const std::string shown = token();
  EXPECT_EQ(logIn(kUser, shown).status, 0) << server.log();
  EXPECT_EQ(logInToSend(kUser, shown).status, 0) << server.log();
}

TEST_P(RefusalTest, AnotherUsersTokenIsRefused) {
  ASSERT_NO_FATAL_FAILURE(signIn("bob@example.com"));
  expectRefused("bob@example.com", token());
  EXPECT_THAT(server.log(), HasSubstr("did not match"));
}

TEST_P(RefusalTest, AnExpiredTokenIsRefused) {
  expectRefused(kUser, expiredToken());
}

TEST_P(RefusalTest, AnExpiredStoredTokenIsRefreshedAndTaken) {
  const std::string expired = expiredToken();
  const std::int64_t before = counterpart.count(side(), "refreshes");
  const std::string fresh = token();
  EXPECT_NE(fresh, expired);
  EXPECT_EQ(counterpart.count(side(), "refreshes"), before + 1);
  EXPECT_EQ(logIn(kUser, fresh).status, 0) << server.log();
}

TEST_P(RefusalTest, WhatIsNoTokenIsRefused) {
  expectRefused(kUser, "not-a-token");
}

// One of the providers has no revocation endpoint.
class RevocationTest : public RefusalTest {};
INSTANTIATE_TEST_SUITE_P(Providers, RevocationTest, testing::Values("Google"));

TEST_P(RevocationTest, ATokenIsRefusedAfterSigningOut) {
  const std::string shown = token();
  EXPECT_EQ(logIn(kUser, shown).status, 0) << server.log();
  const Result signedOut = run({"sign-out", provider(), kUser});
  ASSERT_EQ(signedOut.status, 0) << signedOut.error;
  EXPECT_EQ(counterpart.count(side(), "revocations"), 1);
  expectRefused(kUser, shown);
}

}  // namespace
}  // namespace e2e
