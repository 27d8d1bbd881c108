// The fixture of the command's end-to-end tests: qvr-oauth2 as a user runs it, with folders of its
// own and the scripted browser as the default one.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "tests/e2e/Counterpart.h"
#include "tests/support/ChildProcess.h"

namespace e2e {

// What a finished command printed, and its exit status.
struct Result {
  int status;
  std::string output;
  std::string error;
};

// Waits for the end of the command, which reads nothing more.
Result resultOf(support::ChildProcess& process);

class CommandTest : public testing::TestWithParam<std::string> {
 protected:
  static constexpr const char* kUser = "alice@example.com";

  CommandTest();

  // Starts the command. `further` is added to its environment.
  std::unique_ptr<support::ChildProcess> start(const std::vector<std::string>& arguments,
                                               std::map<std::string, std::string> further = {});

  // The same for a program that runs the command, such as a shell; its arguments with the program
  // first.
  std::unique_ptr<support::ChildProcess> startProgram(
      const std::vector<std::string>& arguments, std::map<std::string, std::string> further = {});
  Result run(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& further = {});

  // Signs `user` in through the scripted browser, which must work.
  void signIn(const std::string& user = kUser);

  // Replaces the text in the configuration, where it must stand.
  void changeConfiguration(const std::string& text, const std::string& replacement);

  // Signs `user` in with a token that is due at once, and lets the next ones live for an hour.
  void signInWithADueToken(const std::string& user = kUser);

  // `token` for the user, with further arguments.
  std::vector<std::string> tokenCommand(const std::vector<std::string>& further = {}) const;
  Result token(const std::vector<std::string>& further = {},
               const std::map<std::string, std::string>& environment = {});

  // A `token` whose refresh is held at the server, where so many are held before.
  std::unique_ptr<support::ChildProcess> startHeld(Counterpart::Moment moment, int heldBefore = 0);

  // What is stored, unsealed: the same after a failure as before it.
  using Records = std::map<qvr::KeychainItemName, qvr::Data>;
  Records records() const;

  // Removes them, as a command does that has the lock.
  void removeRecords() const;

  // How many refreshes the provider got.
  std::int64_t refreshes() { return counterpart.count(side(), "refreshes"); }

  // The scripted browser's program for a user; `how` is appended to its arguments.
  std::string browserFor(const std::string& user, const std::string& how = "");

  const std::string& provider() const { return GetParam(); }
  std::string side() const { return provider() == "Google" ? "google" : "microsoft"; }

  support::TemporaryFolder folder;
  Counterpart counterpart{folder.file("provider")};

 private:
  void writeConfiguration();
  qvr::Ref<qvr::KeychainItems> keychain() const;
};

}  // namespace e2e
