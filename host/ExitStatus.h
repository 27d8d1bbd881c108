// What the command's exit status tells a script.
#pragma once

namespace host {

enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNothingStored = 3,  // sign in first
  kSignInNeeded = 4,   // the grant is gone: sign in again
  kTryAgainLater = 5,  // transient: the network, the server, a locked keychain
};

}  // namespace host
