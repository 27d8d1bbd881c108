// A browser of Debian's as the default one of a private home: a program that opens it with a fresh
// profile and the test's own managed policies, and the desktop entry that names that program.
//
// Managed policies belong to the machine. The program sees the test's through a mount of its own
// (bubblewrap), so that nothing outside the test's folder is written.
#pragma once

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace e2e {

struct BrowserPolicies {
  std::string
      certificateAuthority;  // the PEM file of the one that signed the origins' certificates
  std::vector<std::string> origins;  // may hand addresses of the schemes to their application
  std::vector<std::string> schemes;
};

// Makes the browser ("chromium" or "firefox-esr") the default of the home whose configuration and
// data lie in the folder's "config" and "data". Answers the path of the program that opens it.
std::string makeDefaultBrowser(const std::string& browser, const BrowserPolicies& policies,
                               const support::TemporaryFolder& folder);

}  // namespace e2e
