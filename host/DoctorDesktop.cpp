// `doctor` on the desktop: what opens the address to sign in at, and who gets the redirect.
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "host/ApplicationIdentifier.h"
#include "host/DefaultHandler.h"
#include "host/DoctorChecks.h"
#include "host/FileReading.h"

namespace host {
namespace {

constexpr const char* kHandler = "redirect handler";
constexpr const char* kBrowser = "browser";
constexpr const char* kRegister = "`qvr-oauth2 register`";
constexpr const char* kPaste =
    "sign in with `qvr-oauth2 sign-in --no-browser PROVIDER USER`: open the address it prints on "
    "any computer, and paste the address at which that browser ends.";

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// Where the shell would find the program.
bool canRun(const std::string& program) {
  if (program.find('/') != std::string::npos) return access(program.c_str(), X_OK) == 0;
  std::istringstream folders(variable("PATH"));
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (folder.starts_with('/') && access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

// The program of the first command of $BROWSER that can be run; empty when there is none.
std::string browserProgram() {
  std::istringstream commands(variable("BROWSER"));
  for (std::string command; std::getline(commands, command, ':');) {
    std::string program;
    std::istringstream(command) >> program;
    if (!program.empty() && canRun(program)) return program;
  }
  return "";
}

// The program of a desktop entry of ours, by its TryExec; empty when the file names none. The
// escapes of control characters do not occur in paths of programs.
std::string programOf(const std::string& entryText) {
  constexpr std::string_view kKey = "TryExec=";
  std::istringstream lines(entryText);
  std::string line;
  while (!line.starts_with(kKey) && std::getline(lines, line)) {
  }
  std::string program;
  for (std::size_t i = kKey.size(); i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size()) ++i;
    program += line[i];
  }
  return program;
}

// What keeps the scheme's redirects from coming here; empty when nothing does.
std::string handlerProblem(const std::string& scheme, const std::string& entry,
                           const DesktopFolders& folders) {
  const auto content = readSmallFile(folders.applications + "/" + entry);
  if (const auto* failure = std::get_if<Failure>(&content)) return failure->sentence;
  const auto& text = std::get<std::optional<std::string>>(content);
  if (!text) return "This command is not registered for " + scheme + ".";
  const std::string handler = defaultHandler(folders, scheme);
  if (handler.empty()) return "The desktop has no default application for " + scheme + ".";
  if (handler != entry) return "The desktop hands " + scheme + " to " + handler + ".";
  const std::string program = programOf(*text);
  if (access(program.c_str(), X_OK) == 0) return "";
  return "The program that is registered for " + scheme + " is gone: " + program + ".";
}

Check checkRedirectHandler(const std::string& scheme, const std::string& entry,
                           const DesktopSession& desktop) {
  const std::string problem = handlerProblem(scheme, entry, *desktop.folders);
  if (problem.empty())
    return Check::ok(kHandler, "The desktop hands " + scheme + " to this command.");
  if (desktop.hasDisplay) return Check::problem(kHandler, problem, kRegister);
  return Check::warning(kHandler, problem + " There is no desktop here that would need it.",
                        std::string("On a desktop: ") + kRegister +
                            ". Elsewhere paste the "
                            "address at which the browser ends.");
}

// The application that xdg-open hands web addresses to; empty when none is known.
std::string webHandler(const DesktopSession& desktop) {
  if (!desktop.hasDisplay || !desktop.hasOpener || !desktop.folders) return "";
  return defaultHandler(*desktop.folders, "https");
}

Check noBrowser(const std::string& sentence, const std::string& step) {
  return Check::warning(kBrowser, sentence, step + kPaste);
}

}  // namespace

DesktopSession currentDesktopSession() {
  return {.hasDisplay = !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty(),
          .isSandboxed = access("/.flatpak-info", F_OK) == 0 || !variable("SNAP").empty() ||
                         variable("container") == "flatpak",
          .browser = browserProgram(),
          .hasOpener = canRun("xdg-open"),
          .folders = desktopFolders()};
}

Checks checkRedirectHandlers(const Configuration& configuration, const DesktopSession& desktop) {
  if (!desktop.folders)
    return {Check::unchecked(kHandler, "your home folder is not known.", "Set HOME.")};
  Checks checks;
  const std::string entry = applicationIdentifier(configuration) + ".desktop";
  for (const std::string& scheme : redirectSchemes(configuration))
    checks.push_back(checkRedirectHandler(scheme, entry, desktop));
  if (checks.empty()) checks.push_back(needsRegistration(kHandler));
  return checks;
}

Check checkBrowser(const DesktopSession& desktop) {
  if (desktop.isSandboxed) {
    return Check::unchecked(
        kBrowser, "from a sandbox the desktop's portal opens the address, and is asked at sign-in.",
        std::string("If no browser opens then, ") + kPaste);
  }
  const std::string handler = webHandler(desktop);
  if (!handler.empty()) return Check::ok(kBrowser, "xdg-open opens the address: " + handler + ".");
  if (!desktop.browser.empty())
    return Check::ok(kBrowser, "$BROWSER opens the address: " + desktop.browser + ".");
  if (!desktop.hasDisplay)
    return noBrowser("There is no desktop here, and no $BROWSER that can be run.", "Over SSH, ");
  if (!desktop.hasOpener) {
    return noBrowser("Neither xdg-open nor a $BROWSER is there to open a browser.",
                     "Install xdg-utils, or set BROWSER to a browser's command. Until then: ");
  }
  return noBrowser("No application is known that opens web addresses.",
                   "Install a browser, or make one the default (`xdg-settings set "
                   "default-web-browser NAME.desktop`). Until then: ");
}

}  // namespace host
