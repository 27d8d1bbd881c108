// A home of a test's own, as a desktop sees it, with the command in it.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace host_test {

struct Finished {
  int status;
  std::string output;
  std::string error;
};

class DesktopHome {
 public:
  static constexpr const char* kGoogleScheme = "com.example.mail";
  static constexpr const char* kMicrosoftScheme = "msauth.org.example.mail";
  static constexpr const char* kIdentifier = "org.qvroauth2.command.org_example_mail";

  // With a configuration in which both providers are registered.
  DesktopHome();

  // Runs a program to its end, or starts it: the command with these arguments, or another program.
  Finished run(const std::vector<std::string>& arguments, const std::string& input = {}) const;
  std::unique_ptr<support::ChildProcess> start(const std::vector<std::string>& arguments) const;
  Finished runProgram(const std::vector<std::string>& arguments) const;
  std::unique_ptr<support::ChildProcess> startProgram(
      const std::vector<std::string>& arguments) const;

  // Replaces the configuration; `rest` follows the bundle identifier.
  void configure(const std::string& bundleIdentifier, const std::string& rest) const;

  std::string path(const std::string& name) const { return folder_.file(name); }
  void write(const std::string& name, const std::string& content) const;
  std::string read(const std::string& name) const;
  bool exists(const std::string& name) const;

  // The files below the home that are not the configuration's, by name.
  std::map<std::string, std::string> files() const;

  // Puts an application there that handles the scheme, as a package would.
  void install(const std::string& entry, const std::string& scheme) const;

  // For the environment of what runs here.
  std::map<std::string, std::string> environment;

  static std::string entryFile() { return desktopFile(kIdentifier); }
  static std::string serviceFile() {
    return std::string("data/dbus-1/services/") + kIdentifier + ".service";
  }
  static std::string desktopFile(const std::string& identifier) {
    return "data/applications/" + identifier + ".desktop";
  }
  static constexpr const char* kList = "config/mimeapps.list";

 private:
  const support::TemporaryFolder folder_{};
};

}  // namespace host_test
