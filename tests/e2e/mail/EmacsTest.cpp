// Emacs: Gnus with nnimap for reading, message mode with smtpmail for sending.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class EmacsTest : public MailTest {
 protected:
  EmacsTest() { install("emacs.el", ".emacs.d/init.el"); }

  // Emacs looks for no file of the TLS library's variable.
  Result emacs(const std::string& script) {
    const std::string trust =
        "(setq gnutls-trustfiles '(\"" + counterpart.certificateAuthority() + "\"))";
    return client({"emacs", "--batch", "--quick", "--eval", trust, "--load", "~/.emacs.d/init.el",
                   "--load", QVR_MAIL_FOLDER "/programs/" + script});
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, EmacsTest, testing::Values("Google", "Microsoft"));

TEST_P(EmacsTest, ShowsALetter) {
  deliver();
  const Result result = emacs("read.el");
  EXPECT_EQ(result.status, 0) << result.error << server.log();
  EXPECT_THAT(result.output, HasSubstr(kText));
}

TEST_P(EmacsTest, SendsALetter) {
  const Result result = emacs("send.el");
  EXPECT_EQ(result.status, 0) << result.error << server.log();
  expectSent("from-emacs");
}

}  // namespace
}  // namespace e2e
