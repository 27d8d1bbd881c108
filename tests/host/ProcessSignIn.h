// A sign-in in a process of its own that waits for its redirect. The redirect is always the user's
// refusal, so that it ends, in words, without any server.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>

#include "tests/host/DesktopHome.h"

namespace host_test {

class ProcessSignIn {
 public:
  ProcessSignIn(const DesktopHome& home, const std::string& provider)
      : isGoogle_(provider == "Google"),
        process_(home.start({"sign-in", provider, "user", "--no-browser", "--timeout", "30"})) {
    EXPECT_TRUE(process_->waitForError("press Enter")) << process_->error();
  }

  // The redirect by which its provider refuses.
  std::string refusal() const {
    std::smatch found;
    const std::string printed = process_->error();
    EXPECT_TRUE(std::regex_search(printed, found, std::regex("[?&](state=[^&\\s]+)"))) << printed;
    const std::string uri =
        isGoogle_ ? "com.example.mail:/oauth2/auth" : "msauth.org.example.mail://auth";
    return uri + "?error=access_denied&" + found.str(1);
  }

  // Whether it ended since the refusal came.
  bool wasRefused() {
    return process_->wait() == 1 && process_->error().find("denied") != std::string::npos;
  }

  support::ChildProcess& process() { return *process_; }

 private:
  const bool isGoogle_;
  const std::unique_ptr<support::ChildProcess> process_;
};

}  // namespace host_test
