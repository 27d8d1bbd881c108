#include "src/ports/DesktopWorkspace.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/DetachedProcess.h"

namespace qvr {

namespace {

constexpr std::string_view kHandler = "xdg-open";
constexpr std::string_view kDefaultPath = "/usr/local/bin:/usr/bin:/bin";

// The parts between separators; empty ones are left out.
std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> parts;
  std::size_t start = text.find_first_not_of(separators);
  while (start != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(separators, start), text.size());
    parts.push_back(text.substr(start, end - start));
    start = text.find_first_not_of(separators, end);
  }
  return parts;
}

bool isProgram(const std::string& path) {
  struct stat found {};
  return stat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

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

}  // namespace

bool DesktopWorkspace::openURL(const URL& url) {
  if (!isWebAddress(url) || !hasDesktop()) return false;
  if (!pathOfProgram(kHandler).empty()) return run(kHandler, {url.absoluteString()});
  const auto browsers = split(variable("BROWSER"), ":");
  return std::any_of(browsers.begin(), browsers.end(), [&](std::string_view command) {
    return runBrowser(command, url.absoluteString());
  });
}

// The variable's value; empty when it is not set.
std::string_view DesktopWorkspace::variable(std::string_view name) const {
  for (const std::string_view entry : environment_) {
    if (entry.starts_with(name) && entry.substr(name.size()).starts_with('=')) {
      return entry.substr(name.size() + 1);
    }
  }
  return {};
}

bool DesktopWorkspace::hasDesktop() const {
  return !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty() ||
         !variable("BROWSER").empty();
}

// Where the shell would find it, but never in the current folder; empty when it is nowhere.
std::string DesktopWorkspace::pathOfProgram(std::string_view name) const {
  if (name.find('/') != std::string_view::npos) return std::string(name);
  const std::string_view path = variable("PATH");
  for (const std::string_view folder : split(path.empty() ? kDefaultPath : path, ":")) {
    if (!folder.starts_with('/')) continue;
    std::string candidate = std::string(folder).append("/").append(name);
    if (isProgram(candidate)) return candidate;
  }
  return {};
}

bool DesktopWorkspace::run(std::string_view name, std::vector<std::string> arguments) const {
  const std::string program = pathOfProgram(name);
  if (program.empty()) return false;
  arguments.insert(arguments.begin(), std::string(name));
  return runDetached({program, std::move(arguments), environment_}, patience_);
}

// A command of $BROWSER: words without a shell's quoting, the address in place of "%s" or, without
// one, at the end.
bool DesktopWorkspace::runBrowser(std::string_view command, const std::string& url) const {
  const std::vector<std::string_view> words = split(command, " \t");
  if (words.empty()) return false;
  std::vector<std::string> arguments(words.begin() + 1, words.end());
  bool isPlaced = false;
  for (std::string& argument : arguments)
    isPlaced |= substitute(argument, url);
  if (!isPlaced) arguments.push_back(url);
  return run(words.front(), std::move(arguments));
}

inline namespace v1 {

Ref<Workspace> makeWorkspace() {
  std::vector<std::string> environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    environment.emplace_back(*entry);
  return makeRef<DesktopWorkspace>(std::move(environment));
}

}  // namespace v1
}  // namespace qvr
