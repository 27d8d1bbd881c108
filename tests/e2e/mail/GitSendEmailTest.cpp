// git send-email, through msmtp: Debian 12's Authen::SASL has no mechanism for tokens.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

class GitSendEmailTest : public MailTest {};
INSTANTIATE_TEST_SUITE_P(Providers, GitSendEmailTest, testing::Values("Google", "Microsoft"));

TEST_P(GitSendEmailTest, SendsAPatch) {
  install("msmtprc", ".msmtprc");
  install("gitconfig", ".gitconfig");
  const Result result =
      client({"sh", "-ec",
              std::string("cd; git init -q patches; cd patches; git config user.name Alice;"
                          "git config user.email alice@example.com; echo one > file; git add file;"
                          "git commit -q -m from-git; git format-patch -q --root -1;"
                          "git send-email --quiet --confirm=never --suppress-cc=all --to ") +
                  kFriend + " 0001-from-git.patch"});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
  expectSent("[PATCH] from-git");
}

}  // namespace
}  // namespace e2e
