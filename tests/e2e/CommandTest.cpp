#include "tests/e2e/CommandTest.h"

#include <sys/stat.h>

#include <filesystem>

namespace e2e {

CommandTest::CommandTest() {
  std::filesystem::create_directories(folder.file("config/qvr-oauth2"));
  std::filesystem::create_directories(folder.file("run"));
  for (const char* name : {"config", "config/qvr-oauth2", "run"}) {
    std::filesystem::permissions(folder.file(name), std::filesystem::perms::owner_all);
  }
  writeConfiguration();
}

void CommandTest::writeConfiguration() {
  const auto quoted = [](const std::string& text) { return "\"" + text + "\"\n"; };
  folder.write(
      "config/qvr-oauth2/config.toml",
      "bundle_identifier = " + quoted(counterpart.ready("bundleIdentifier")) +
          "[google]\nclient_identifier = " + quoted(counterpart.ready("google", "clientId")) +
          "client_secret = " + quoted(counterpart.ready("google", "clientSecret")) +
          "custom_uri_scheme = " + quoted(counterpart.ready("google", "scheme")) +
          "[microsoft]\napplication_identifier = " +
          quoted(counterpart.ready("microsoft", "clientId")) +
          "[endpoints]\ngoogle_authorization_host = " +
          quoted(counterpart.ready("google", "host")) +
          "google_token_host = " + quoted(counterpart.ready("google", "host")) +
          "microsoft_login_host = " + quoted(counterpart.ready("microsoft", "host")) +
          "certificate_authority_file = " + quoted(counterpart.certificateAuthority()));
}

std::string CommandTest::browserFor(const std::string& user, const std::string& how) {
  const std::string handler =
      folder.write("handler", "#!/bin/sh\nexec '" QVR_OAUTH2_PROGRAM "' open-url \"$1\"\n");
  const std::string browser =
      folder.write("browser-" + user,
                   "#!/bin/sh\nexec '" QVR_NODE "' '" QVR_E2E_FOLDER "/browser/browse.mjs' --ca '" +
                       counterpart.certificateAuthority() + "' --user '" + user +
                       "' --password x " + how + " --handler '" + handler + "' \"$1\"\n");
  chmod(handler.c_str(), S_IRWXU);
  chmod(browser.c_str(), S_IRWXU);
  return browser;
}

std::unique_ptr<support::ChildProcess> CommandTest::start(
    const std::vector<std::string>& arguments, std::map<std::string, std::string> further) {
  support::ChildProcess::Options options;
  options.arguments = {QVR_OAUTH2_PROGRAM};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = std::move(further);
  options.environment.insert({{"HOME", folder.path()},
                              {"XDG_CONFIG_HOME", folder.file("config")},
                              {"XDG_DATA_HOME", folder.file("data")},
                              {"XDG_RUNTIME_DIR", folder.file("run")},
                              {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.file("no-bus")},
                              {"DISPLAY", ""},
                              {"WAYLAND_DISPLAY", ""},
                              {"XDG_CURRENT_DESKTOP", "X-Generic"},
                              {"BROWSER", ""}});
  return std::make_unique<support::ChildProcess>(options);
}

Result CommandTest::run(const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& further) {
  const auto process = start(arguments, further);
  process->closeInput();
  const int status = process->wait();
  return {status, process->output(), process->error()};
}

void CommandTest::signIn(const std::string& user) {
  const Result result =
      run({"sign-in", provider(), user, "--timeout", "30"}, {{"BROWSER", browserFor(user)}});
  ASSERT_EQ(result.status, 0) << result.output << result.error;
}

}  // namespace e2e
