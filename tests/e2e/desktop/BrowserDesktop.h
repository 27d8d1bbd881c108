// A desktop session of a test's own: a screen, a session bus, an open keyring, and a home in which
// nothing is set up yet. Whatever was started in it ends with it.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

namespace e2e {

// Adopts what the processes of this one leave behind, such as a browser whose opener has ended, and
// ends it all when the object goes. Processes that were there before are left alone.
class Orphanage {
 public:
  Orphanage();
  ~Orphanage();
  Orphanage(const Orphanage&) = delete;
  Orphanage& operator=(const Orphanage&) = delete;

 private:
  const std::set<pid_t> before_;
};

class BrowserDesktop {
 public:
  // Uses the folder's "home", "config", "data", "cache" and "run".
  explicit BrowserDesktop(const support::TemporaryFolder& folder);

  // What makes a program part of the session.
  const std::map<std::string, std::string>& environment() const { return environment_; }

  std::unique_ptr<support::ChildProcess> start(const std::vector<std::string>& arguments) const;

  // From now on xdg-open opens as on GNOME: over the bus, where a desktop entry allows that.
  // Before, it is as on a bare window manager, which runs the entry's program.
  void openOverTheBus() { environment_["XDG_CURRENT_DESKTOP"] = "GNOME"; }

  // Prints "member=Open" for each address that an application is given over the bus, once this has
  // returned.
  std::unique_ptr<support::ChildProcess> watchBus() const;

 private:
  void startScreen();
  void startBus(const support::TemporaryFolder& folder);
  void openKeyring();

  const Orphanage orphanage_{};
  std::map<std::string, std::string> environment_;
  std::unique_ptr<support::ChildProcess> screen_{};
  std::unique_ptr<support::PrivateBus> bus_{};
  std::unique_ptr<support::ChildProcess> keyring_{};
};

}  // namespace e2e
