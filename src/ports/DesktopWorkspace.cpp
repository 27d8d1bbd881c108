#include "src/ports/DesktopWorkspace.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/DesktopPortal.h"
#include "src/ports/DetachedProcess.h"
#include "src/ports/WebHandler.h"

namespace qvr {

namespace {

constexpr std::string_view kHandler = "xdg-open";

// What the handler tries where the desktop has no default: its own list ends with programs that
// need a terminal and, without one, read the page and say that all went well.
constexpr std::string_view kBrowsersWithWindows =
    "x-www-browser:firefox:epiphany:konqueror:chromium:chromium-browser:google-chrome";

bool isWebAddress(const URL& url) {
  const Text scheme = url.scheme();
  return scheme &&
         (strcasecmp(scheme->c_str(), "https") == 0 || strcasecmp(scheme->c_str(), "http") == 0);
}

// Replaces every "%s" by the address; answers whether there was one.
bool substitute(std::string& argument, const std::string& url) {
  constexpr std::string_view kPlace = "%s";
  bool found = false;
  for (std::size_t at = argument.find(kPlace); at != std::string::npos;
       at = argument.find(kPlace, at + url.size())) {
    argument.replace(at, kPlace.size(), url);
    found = true;
  }
  return found;
}

bool run(std::string_view name, std::vector<std::string> arguments, const Environment& environment,
         std::chrono::milliseconds patience) {
  const std::string program = environment.pathOfProgram(name);
  if (program.empty()) return false;
  arguments.insert(arguments.begin(), std::string(name));
  return runDetached({program, std::move(arguments), environment.entries()}, patience);
}

}  // namespace

bool DesktopWorkspace::openURL(const URL& url) {
  if (!isWebAddress(url)) return false;
  const std::string& address = url.absoluteString();
  if (isInSandbox()) {
    const std::string bus(variable("DBUS_SESSION_BUS_ADDRESS"));
    const PortalOutcome outcome =
        openByPortal(address, {bus, options_.portalTimeout, options_.patience});
    if (outcome != PortalOutcome::kAbsent) return outcome == PortalOutcome::kTaken;
  }
  return openOutsideSandbox(address);
}

bool DesktopWorkspace::openOutsideSandbox(const std::string& url) const {
  if (!hasDisplay()) return runBrowsers(url);
  if (!isWebHandlerEvident(options_.environment)) return runBrowsers(url) || searchForHandler(url);
  return run(kHandler, {url}, options_.environment, options_.patience) || runBrowsers(url);
}

// The handler knows places of its desktop that we do not.
bool DesktopWorkspace::searchForHandler(const std::string& url) const {
  return run(kHandler, {url}, options_.environment.with("BROWSER", kBrowsersWithWindows),
             options_.searchPatience);
}

bool DesktopWorkspace::isInSandbox() const {
  return access(options_.sandboxMark.c_str(), F_OK) == 0 || !variable("SNAP").empty() ||
         variable("container") == "flatpak";
}

bool DesktopWorkspace::hasDisplay() const {
  return !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty();
}

bool DesktopWorkspace::runBrowsers(const std::string& url) const {
  const auto browsers = splitWords(variable("BROWSER"), ":");
  return std::any_of(browsers.begin(), browsers.end(),
                     [&](std::string_view command) { return runBrowser(command, url); });
}

// A command of $BROWSER: words without a shell's quoting, the address in place of "%s" or, without
// one, at the end.
bool DesktopWorkspace::runBrowser(std::string_view command, const std::string& url) const {
  const std::vector<std::string_view> words = splitWords(command, " \t");
  if (words.empty()) return false;
  std::vector<std::string> arguments(words.begin() + 1, words.end());
  bool isPlaced = false;
  for (std::string& argument : arguments)
    isPlaced |= substitute(argument, url);
  if (!isPlaced) arguments.push_back(url);
  return run(words.front(), std::move(arguments), options_.environment, options_.patience);
}

inline namespace v1 {

Ref<Workspace> makeWorkspace() {
  return makeRef<DesktopWorkspace>(DesktopWorkspaceOptions{Environment::ofThisProcess()});
}

}  // namespace v1
}  // namespace qvr
