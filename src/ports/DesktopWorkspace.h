// The browser opener behind makeWorkspace.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/Workspace.h"
#include "src/ports/Environment.h"

namespace qvr {

struct DesktopWorkspaceOptions {
  // Decides, and is what the browser inherits.
  Environment environment;

  // A handler that has not failed by then has taken the address.
  std::chrono::milliseconds patience{200};

  // The same for the desktop's handler where no browser is evident: it looks for one in many places
  // before it fails, which takes a slow machine longer.
  std::chrono::milliseconds searchPatience{3000};

  // For the portal of a sandbox to answer.
  std::chrono::milliseconds portalTimeout{5000};

  // A file that only a sandbox has.
  std::string sandboxMark = "/.flatpak-info";
};

// Opens web addresses (http and https, nothing else): in a sandbox by the desktop's portal; else
// with `xdg-open`, the desktop's own way to its default handler; where that fails, or there is no
// display, with the commands of $BROWSER. A browser that would take over a terminal is started only
// when $BROWSER names it. The address carries the state of a sign-in, so it is never logged.
class DesktopWorkspace final : public Workspace {
 public:
  explicit DesktopWorkspace(DesktopWorkspaceOptions options) : options_(std::move(options)) {}

  bool openURL(const URL& url) override;

 private:
  std::string_view variable(std::string_view name) const {
    return options_.environment.variable(name);
  }
  bool isInSandbox() const;
  bool hasDisplay() const;

  bool openOutsideSandbox(const std::string& url) const;
  bool searchForHandler(const std::string& url) const;
  bool runBrowsers(const std::string& url) const;
  bool runBrowser(std::string_view command, const std::string& url) const;

  const DesktopWorkspaceOptions options_;
};

}  // namespace qvr
