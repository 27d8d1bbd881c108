// A sign-in in one process: a browser that the test plays, and pipes in place of the terminal and
// of the signals.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "host/Descriptor.h"
#include "host/RedirectSocket.h"
#include "host/SignIn.h"
#include "host/SignInState.h"
#include "tests/host/CommandTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LibraryTest.h"

namespace host {

struct Pipe {
  Pipe();
  void write(std::string_view text) const;
  // What has been written and the end was closed for.
  std::string readAll();

  Descriptor readEnd;
  Descriptor writeEnd;
};

// A connection to a redirect socket that the test drives by hand.
class RawConnection {
 public:
  explicit RawConnection(const std::string& path);
  bool isConnected() const { return isConnected_; }
  bool send(std::string_view text) const;

  // What the other side sends until it closes the connection.
  std::string readToEnd() const;

 private:
  Descriptor socket_;
  bool isConnected_;
};

// What a signal looks like to a sign-in that waits at the other end of the pipe.
void interrupt(const Pipe& signals);

class SignInTest : public host_test::CommandTest {
 protected:
  SignInTest();

  // Signs in, and keeps what was printed.
  int run();

  // What the provider answers next.
  void answerWith(std::int64_t status, std::string body) {
    session->answerWith({status, std::move(body), 0});
  }
  void answerWithAToken();

  // The redirect that answers the browser's latest address, with these pairs before the state.
  std::string redirectWith(std::string_view pairs) const;
  std::string accept() const { return redirectWith("code=the-code-of-this-sign-in"); }
  std::string state() const { return stateInURL(browser->opened.back()).value(); }
  std::string socketPath() const {
    return environment.runtimeFolder + "/" + redirectSocketName(state());
  }

  // Writes a line to the sign-in's standard input.
  void paste(const std::string& line) const { input.write(line + "\n"); }

  // Makes the browser answer every address with the redirect.
  void acceptInTheBrowser();

  qvr::Ref<QVROAuth2Token> storedRecord() const;

  support::TemporaryFolder folder;
  SignInOptions options;
  Pipe input;
  Pipe signals;
  SignInEnvironment environment;
  qvr::Ref<support::FakeWorkspace> browser = qvr::makeRef<support::FakeWorkspace>();
  std::string out;
  std::string error;
};

}  // namespace host
