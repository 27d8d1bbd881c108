// `doctor` on the way that a redirect takes to the sign-in that waits for it.
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "host/DoctorChecks.h"
#include "host/Paths.h"
#include "host/RedirectSocket.h"

namespace host {
namespace {

constexpr const char* kFolder = "runtime folder";
constexpr const char* kBus = "session bus";

// The folder and those above it that are not there, the deepest first.
std::vector<std::string> missingFolders(std::string folder) {
  std::vector<std::string> missing;
  struct stat status = {};
  for (; lstat(folder.c_str(), &status) != 0; folder = parentFolder(folder)) {
    missing.push_back(folder);
  }
  return missing;
}

// No sign-in has this state.
std::string throwAwayState() {
  return "doctor-" + std::to_string(getpid());
}

std::optional<Failure> listeningProblem(const std::string& folder) {
  std::optional<Failure> failure = makePrivateFolder(folder);
  if (!failure) RedirectListener::listen(folder, throwAwayState(), &failure);
  return failure;
}

}  // namespace

Check checkRuntimeFolder(const std::string& folder) {
  const std::vector<std::string> missing = missingFolders(folder);
  const auto failure = listeningProblem(folder);
  for (const std::string& made : missing)
    rmdir(made.c_str());  // refused while anybody uses it
  if (!failure) return Check::ok(kFolder, "Redirects can be waited for in " + folder + ".");
  return Check::problem(kFolder, failure->sentence,
                        "Mend the folder, or set XDG_RUNTIME_DIR to a folder of your own (mode "
                        "0700). Until then the browser's answer has to be pasted.");
}

Check checkSessionBus(const qvr::URLReceiverOptions& options) {
  std::string reason;
  if (qvr::makeURLReceiver(options, &reason))
    return Check::ok(kBus, "There is a session bus, over which the desktop hands redirects over.");
  return Check::warning(kBus, reason,
                        "None is needed: redirects then come through the runtime folder. A desktop "
                        "session starts one; elsewhere `dbus-run-session` does.");
}

}  // namespace host
