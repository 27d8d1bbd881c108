// offlineimap, which evaluates its configuration as Python.

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class OfflineimapTest : public MailTest {};
INSTANTIATE_TEST_SUITE_P(Providers, OfflineimapTest, testing::Values("Google", "Microsoft"));

TEST_P(OfflineimapTest, FetchesALetter) {
  install("offlineimaprc", ".offlineimaprc");
  deliver();
  const Result result = client({"offlineimap", "-o"});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
  EXPECT_THAT(filesBelow("Mail"), HasSubstr(kText));
}

}  // namespace
}  // namespace e2e
