// A sign-in as `open-url` and `activate` see one: a socket for a state, served by a thread.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <future>
#include <string>
#include <vector>

#include "host/RedirectSocket.h"

namespace host_test {

class WaitingSignIn {
 public:
  WaitingSignIn(const std::string& folder, const std::string& state,
                host::RedirectAnswer answer = host::RedirectAnswer::kAccepted)
      : answer_(answer), listener_(host::RedirectListener::listen(folder, state, &failure_)) {
    EXPECT_TRUE(listener_);
    received_ = std::async(std::launch::async, [this] { return serve(); });
  }

  // The redirect that came; empty when none did in time.
  std::string received() { return received_.get(); }

 private:
  std::string serve() const {
    std::string redirect;
    pollfd waiting{listener_->fileDescriptor(), POLLIN, 0};
    while (redirect.empty() && poll(&waiting, 1, 20'000) > 0) {
      listener_->serve([&](const std::string& url) {
        redirect = url;
        return answer_;
      });
    }
    return redirect;
  }

  const host::RedirectAnswer answer_;
  std::optional<host::Failure> failure_;
  const std::unique_ptr<host::RedirectListener> listener_;
  std::future<std::string> received_;
};

}  // namespace host_test
