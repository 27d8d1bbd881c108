// The fixture of the command's end-to-end tests: qvr-oauth2 as a user runs it, with folders of its
// own and the scripted browser as the default one.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/e2e/Counterpart.h"
#include "tests/support/ChildProcess.h"

namespace e2e {

// What a finished command printed, and its exit status.
struct Result {
  int status;
  std::string output;
  std::string error;
};

class CommandTest : public testing::TestWithParam<std::string> {
 protected:
  static constexpr const char* kUser = "alice@example.com";

  CommandTest();

  // Starts the command. `further` is added to its environment.
  std::unique_ptr<support::ChildProcess> start(const std::vector<std::string>& arguments,
                                               std::map<std::string, std::string> further = {});
  Result run(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& further = {});

  // Signs `user` in through the scripted browser, which must work.
  void signIn(const std::string& user = kUser);

  // The scripted browser's program for a user; `how` is appended to its arguments.
  std::string browserFor(const std::string& user, const std::string& how = "");

  const std::string& provider() const { return GetParam(); }
  std::string side() const { return provider() == "Google" ? "google" : "microsoft"; }

  support::TemporaryFolder folder;
  Counterpart counterpart{folder.file("provider")};

 private:
  void writeConfiguration();
};

}  // namespace e2e
