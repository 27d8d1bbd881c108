// The fixture of the tests that look for secrets where none may be: whatever a command prints,
// shows to the system or leaves in files is collected, and at the end of the test searched for
// every secret that was in use, in every form.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/e2e/CommandTest.h"
#include "tests/e2e/SecretForms.h"
#include "tests/e2e/SecretWatch.h"

namespace e2e {

// How a command is run under watch.
struct RunOptions {
  std::map<std::string, std::string> environment{};
  std::string input{};
  // What the test, as the user or the desktop, puts on the command line although it is secret.
  std::set<std::string> typed{};
  // Runs behind the command in a shell: "3<file", ">&-".
  std::string redirections{};
};

class SecretsTest : public CommandTest {
 protected:
  static constexpr const char* kAccessToken = "access_token";
  static constexpr const char* kClientSecret = "client_secret";
  static constexpr const char* kCode = "code";
  static constexpr const char* kKey = "key";
  static constexpr const char* kPassphrase = "passphrase";

  // A command that runs, and all that it executes.
  struct Watched {
    std::unique_ptr<SecretWatch> watch;
    std::unique_ptr<support::ChildProcess> process;
    std::vector<std::string> arguments;
    RunOptions options;
  };

  SecretsTest();

  // Searches what was collected, and finds nothing.
  void TearDown() override;

  Watched begin(const std::vector<std::string>& arguments, const RunOptions& options = {});
  Result end(Watched& watched);
  Result watch(const std::vector<std::string>& arguments, const RunOptions& options = {});

  // Runs the steps without and with --verbose.
  void bothWays(const std::function<void()>& steps);

  // The scripted browser, whose redirect goes to `open-url` by a handler that keeps what that says.
  RunOptions browser(const std::string& user = kUser, const std::string& how = "");
  void signInWatched();

  // A sign-in for which the test plays the browser, and the redirect that it ends with.
  Watched beginSignIn(const std::string& user = kUser);
  std::string redirectOf(const Watched& waiting, const std::string& user = kUser);

  // Faults of the token endpoint, by kind and further members, whose answers repeat what stands in
  // the request's form under these names: raw, percent-encoded, and where a message is cut.
  using Faults = std::vector<std::pair<std::string, std::string>>;
  static Faults echoing(const std::vector<std::string>& names);

  // What fails says why, and puts nothing on standard output.
  void expectFailure(const Result& result, int status = -1);

  // Everything that lies in the user's folders now, with its names, and the system's sockets.
  void collectFiles();

  // Secrets of the test's own, beside those that the servers know.
  void keepSecret(const std::string& kind, const std::string& text);
  std::string contentOf(const std::string& name) const;

 private:
  // A piece of what was collected.
  struct Piece {
    std::string text;
    std::set<std::string> mayHold;  // kinds of secrets
  };
  void collect(const std::string& place, const std::string& text,
               const std::set<std::string>& mayHold = {});
  void collectExecution(const Execution& execution, const std::set<std::string>& typed);
  void collectFolder(const std::string& path);
  SecretForms secretsInUse();

  bool isVerbose_ = false;
  std::map<std::string, std::vector<Piece>> collected_{};  // by place
  std::vector<Secret> own_{};
  std::set<std::string> sharedMemory_{};
  int runs_ = 0;
  int executions_ = 0;
};

}  // namespace e2e
