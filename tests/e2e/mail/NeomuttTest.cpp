// neomutt, on a terminal for reading and in batch mode for sending.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

class NeomuttTest : public MailTest {};
INSTANTIATE_TEST_SUITE_P(Providers, NeomuttTest, testing::Values("Google", "Microsoft"));

TEST_P(NeomuttTest, ShowsALetter) {
  install("neomuttrc", ".neomuttrc");
  deliver();
  const Result result = onTerminal(
      {std::string("see ") + kSubject, "type \r", std::string("see ") + kText, "type q", "type q"},
      {"neomutt"});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
}

TEST_P(NeomuttTest, SendsALetter) {
  install("neomuttrc", ".neomuttrc");
  const Result result =
      client({"sh", "-c", std::string("echo Hello. | neomutt -s from-neomutt ") + kFriend});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
  expectSent("from-neomutt");
}

}  // namespace
}  // namespace e2e
