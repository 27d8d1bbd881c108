// The browser opener behind makeWorkspace.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/Workspace.h"

namespace qvr {

// A handler that has not failed by then has taken the address.
inline constexpr std::chrono::milliseconds kHandlerPatience{200};

// Opens web addresses (http and https, nothing else) with `xdg-open`, the desktop's own way to its
// default handler, in a sandbox too; without that program, with the commands of $BROWSER. Where
// there is neither a display nor a $BROWSER nothing is started: what xdg-open falls back to then
// would take over a terminal. The address carries the state of a sign-in, so it is never logged.
class DesktopWorkspace final : public Workspace {
 public:
  // The environment (NAME=value) that decides, and that the browser inherits.
  explicit DesktopWorkspace(std::vector<std::string> environment,
                            std::chrono::milliseconds patience = kHandlerPatience)
      : environment_(std::move(environment)), patience_(patience) {}

  bool openURL(const URL& url) override;

 private:
  std::string_view variable(std::string_view name) const;
  bool hasDesktop() const;
  std::string pathOfProgram(std::string_view name) const;
  bool run(std::string_view name, std::vector<std::string> arguments) const;
  bool runBrowser(std::string_view command, const std::string& url) const;

  const std::vector<std::string> environment_;
  const std::chrono::milliseconds patience_;
};

}  // namespace qvr
