// The fixture of the tests with real mail programs: a mail server that takes the counterpart's
// tokens, a user who is signed in, and the programs with recipes of docs/mail-clients.md.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/e2e/CommandTest.h"
#include "tests/e2e/mail/MailServer.h"
#include "tests/e2e/mail/Template.h"

namespace e2e {

class MailTest : public CommandTest {
 protected:
  static constexpr const char* kSubject = "greetings-from-carol";
  static constexpr const char* kText = "See-you-on-Monday.";
  static constexpr const char* kFriend = "friend@example.org";

  MailTest();
  void SetUp() override { signIn(); }

  // Puts a recipe, filled in for this test, where its program looks for it below the home.
  std::string install(const std::string& recipe, const std::string& path);
  std::string recipe(const std::string& name) const;

  // Runs a program as the user does, to its end or the deadline; the status is then 124.
  Result client(const std::vector<std::string>& arguments, int seconds = 20);

  // Runs a program on a terminal of its own; the steps are those of programs/terminal.py.
  Result onTerminal(const std::vector<std::string>& steps,
                    const std::vector<std::string>& arguments);

  // Puts the one letter into the user's inbox.
  void deliver() { server.deliver(kUser, kSubject, kText); }

  // From now on the programs find a command that prints this, which is no token of the server's.
  void printARefusedToken(const std::string& text = "refused");

  // Everything in the files below a folder of the home.
  std::string filesBelow(const std::string& path) const;

  // The access token that the user has now.
  std::string token();

  // What the sink must have been told once the letter with this subject was sent.
  void expectSent(const std::string& subject);

  MailServer server{counterpart, side()};

 private:
  std::map<std::string, std::string> environment() const;
};

}  // namespace e2e
