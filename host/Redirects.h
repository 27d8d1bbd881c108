// What becomes of a URL that the desktop handed to this process, whichever way it came: the sign-in
// that waits for it gets it, or the user is told why not. A redirect holds a code, so nothing that
// is said repeats it.
#pragma once

#include <string>

namespace host {

struct Delivery {
  bool isDone;           // the sign-in took it
  std::string sentence;  // what became of it
};

// Hands the URL to the sign-in that waits for its state, over the socket in the runtime folder.
Delivery deliverRedirect(const std::string& url, const std::string& runtimeFolder);

// Says the sentence on standard error and, since nobody looks there when the desktop started this
// process, in a desktop notification.
void sayThatRedirectFailed(const std::string& sentence);

// Both: true when the redirect was delivered, and said when it was not.
bool handOverRedirect(const std::string& url, const std::string& runtimeFolder);

}  // namespace host
