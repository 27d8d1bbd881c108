// getmail 6.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/mail/MailTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class GetmailTest : public MailTest {
 protected:
  // getmail delivers nothing as root. For root it writes as the server's user, whom the folders
  // then have to let in.
  void installForThisUser() {
    for (const char* name :
         {"Mail", "Mail/inbox", "Mail/inbox/new", "Mail/inbox/cur", "Mail/inbox/tmp"}) {
      std::filesystem::create_directories(folder.file(name));
      server.giveToServerUser(folder.file(name));
    }
    std::string text = recipe("getmailrc");
    if (getuid() == 0) {
      chmod(folder.path().c_str(), S_IRWXU | S_IXOTH);
      text += "user = " + server.serverUser() + "\n";
    }
    std::filesystem::create_directories(folder.file("config/getmail"));
    folder.write("config/getmail/getmailrc", text);
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, GetmailTest, testing::Values("Google", "Microsoft"));

TEST_P(GetmailTest, FetchesALetter) {
  installForThisUser();
  deliver();
  const Result result = client({"getmail"});
  EXPECT_EQ(result.status, 0) << result.output << result.error << server.log();
  EXPECT_THAT(filesBelow("Mail"), HasSubstr(kText));
}

}  // namespace
}  // namespace e2e
