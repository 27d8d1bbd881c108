#include "tests/host/DesktopHome.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace host_test {

namespace {

constexpr const char* kBothProviders =
    "[google]\nclient_identifier = \"id\"\ncustom_uri_scheme = \"com.example.mail\"\n"
    "[microsoft]\napplication_identifier = \"01234567-89ab-cdef-0123-456789abcdef\"\n"
    "[keychain]\nkind = \"encrypted-file\"\n";

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

Finished finish(support::ChildProcess& process, const std::string& input) {
  process.writeInput(input);
  process.closeInput();
  const int status = process.wait();
  return {status, process.output(), process.error()};
}

}  // namespace

DesktopHome::DesktopHome() {
  environment = {{"HOME", path("")},
                 {"XDG_CONFIG_HOME", path("config")},
                 {"XDG_DATA_HOME", path("data")},
                 {"XDG_RUNTIME_DIR", path("run")},
                 {"XDG_CONFIG_DIRS", path("etc")},
                 {"XDG_DATA_DIRS", path("usr")},
                 {"XDG_CURRENT_DESKTOP", "X-Generic"},
                 {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path("no-bus")},
                 {"DISPLAY", "none:0"},  // without one xdg-open only looks for text browsers
                 {"WAYLAND_DISPLAY", ""},
                 {"BROWSER", ""}};
  std::filesystem::create_directory(path("run"));
  std::filesystem::permissions(path("run"), std::filesystem::perms::owner_all);
  configure("org.example.mail", kBothProviders);
}

void DesktopHome::configure(const std::string& bundleIdentifier, const std::string& rest) const {
  write("settings.toml", "bundle_identifier = \"" + bundleIdentifier + "\"\n" + rest);
}

Finished DesktopHome::run(const std::vector<std::string>& arguments,
                          const std::string& input) const {
  return finish(*start(arguments), input);
}

std::unique_ptr<support::ChildProcess> DesktopHome::start(
    const std::vector<std::string>& arguments) const {
  std::vector<std::string> all{QVR_OAUTH2_PROGRAM, "--config", path("settings.toml")};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return startProgram(all);
}

Finished DesktopHome::runProgram(const std::vector<std::string>& arguments) const {
  return finish(*startProgram(arguments), "");
}

std::unique_ptr<support::ChildProcess> DesktopHome::startProgram(
    const std::vector<std::string>& arguments) const {
  return std::make_unique<support::ChildProcess>(
      support::ChildProcess::Options{arguments, environment});
}

void DesktopHome::write(const std::string& name, const std::string& content) const {
  std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
  std::ofstream(path(name)) << content;
}

std::string DesktopHome::read(const std::string& name) const {
  return contentOf(path(name));
}

bool DesktopHome::exists(const std::string& name) const {
  return std::filesystem::exists(path(name));
}

std::map<std::string, std::string> DesktopHome::files() const {
  std::map<std::string, std::string> files;
  for (const auto& file : std::filesystem::recursive_directory_iterator(folder_.path())) {
    if (!file.is_regular_file() || file.path().filename() == "settings.toml") continue;
    files[std::filesystem::relative(file.path(), folder_.path())] = contentOf(file.path());
  }
  return files;
}

void DesktopHome::install(const std::string& entry, const std::string& scheme) const {
  write("usr/applications/" + entry,
        "[Desktop Entry]\nType=Application\nName=Other\nExec=/bin/true %u\n"
        "MimeType=x-scheme-handler/" +
            scheme + ";\n");
  EXPECT_EQ(runProgram({"update-desktop-database", path("usr/applications")}).status, 0);
}

}  // namespace host_test
