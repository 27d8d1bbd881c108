// The commands of qvr-oauth2, and what each is given. Every one returns an ExitStatus, prints its
// result on standard output and everything else on standard error, and lets no exception out.
#pragma once

#include <optional>
#include <string>

#include "host/Account.h"
#include "host/Configuration.h"
#include "host/ExitStatus.h"
#include "host/TokenFormat.h"

namespace host {

struct SignInOptions {
  Account account;
  std::optional<std::string> scope;       // the provider's default mail scopes when absent
  std::optional<std::string> prompt;      // Microsoft
  std::optional<std::string> domainHint;  // Microsoft
  double timeoutSeconds = 300;            // for the user to finish in the browser
  bool openBrowser = true;                // false: only print the URL
};

struct TokenOptions {
  Account account;
  bool forceRefresh = false;
  double minimumSeconds = 0;  // how long the token must still be valid
  TokenFormat format{};
};

struct StatusOptions {
  Account account;
  bool asJSON = false;
};

// These run after the library has been told the configuration (installHost() in Setup.h).
int signIn(const Configuration& configuration, const SignInOptions& options);
int token(const Configuration& configuration, const TokenOptions& options);
int accounts(const Configuration& configuration, bool asJSON);
int status(const Configuration& configuration, const StatusOptions& options);
int signOut(const Configuration& configuration, const Account& account, bool localOnly);

// Carries all tokens over to the keychain of the name ("secret-service" or "file"), verifies them
// there, makes it the configuration's, and only then removes them from the old one.
int moveKeychain(const Configuration& configuration, const std::string& keychain);

// These need no keychain and no library set-up.
int openURL(const std::string& url);
int registerSchemes(const Configuration& configuration);
int unregisterSchemes(const Configuration& configuration);
int unregisterAll();  // whatever the configuration was

// Takes redirects under the bus name for which the session bus started this process, hands each to
// the sign-in that waits for it, and ends when none has come for a while.
int activate(const std::string& busName);

// Checks what signing in needs, a line each, and ends with kDone only without problems. The
// configuration may be missing or faulty: that is one of the checks.
struct DoctorOptions {
  std::string configurationPath{};
  bool asJSON = false;
  int passphraseDescriptor = -1;  // as in Configuration::Keychain
};
int doctor(const DoctorOptions& options);
int config(const std::string& configurationPath);
int showConfiguration(const Configuration& configuration);
int version();

}  // namespace host
