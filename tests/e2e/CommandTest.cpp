#include "tests/e2e/CommandTest.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "QVROAuth2Client/platform/Ports.h"

namespace e2e {
namespace {

qvr::KeychainQuery queryFor(const qvr::KeychainItemName& name) {
  qvr::KeychainQuery query;
  query.emplace(qvr::kSecClass, qvr::kSecClassGenericPassword);
  query.emplace(qvr::kSecAttrService, name.service);
  query.emplace(qvr::kSecAttrAccount, name.account);
  return query;
}

}  // namespace

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
  std::vector<std::string> all = {QVR_OAUTH2_PROGRAM};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return startProgram(all, std::move(further));
}

std::unique_ptr<support::ChildProcess> CommandTest::startProgram(
    const std::vector<std::string>& arguments, std::map<std::string, std::string> further) {
  support::ChildProcess::Options options;
  options.arguments = arguments;
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

Result resultOf(support::ChildProcess& process) {
  process.closeInput();
  const int status = process.wait();
  return {status, process.output(), process.error()};
}

Result CommandTest::run(const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& further) {
  return resultOf(*start(arguments, further));
}

void CommandTest::signIn(const std::string& user) {
  const Result result =
      run({"sign-in", provider(), user, "--timeout", "30"}, {{"BROWSER", browserFor(user)}});
  ASSERT_EQ(result.status, 0) << result.output << result.error;
}

void CommandTest::signInWithADueToken(const std::string& user) {
  counterpart.setAccessTokenSeconds(side(), 60);
  ASSERT_NO_FATAL_FAILURE(signIn(user));
  counterpart.setAccessTokenSeconds(side(), 3600);
  ASSERT_FALSE(records().empty()) << "what tests compare";
}

std::vector<std::string> CommandTest::tokenCommand(const std::vector<std::string>& further) const {
  std::vector<std::string> arguments = {"token", provider(), kUser};
  arguments.insert(arguments.end(), further.begin(), further.end());
  return arguments;
}

Result CommandTest::token(const std::vector<std::string>& further,
                          const std::map<std::string, std::string>& environment) {
  return run(tokenCommand(further), environment);
}

std::unique_ptr<support::ChildProcess> CommandTest::startHeld(Counterpart::Moment moment,
                                                              int heldBefore) {
  counterpart.hold(side(), moment);
  auto command = start(tokenCommand());
  counterpart.waitUntilHeld(side(), heldBefore + 1);
  return command;
}

qvr::Ref<qvr::KeychainItems> CommandTest::keychain() const {
  return qvr::makeEncryptedFileKeychain({.directory = folder.file("data/qvr-oauth2/items"),
                                         .keyFile = folder.file("config/qvr-oauth2/key")});
}

CommandTest::Records CommandTest::records() const {
  const auto items = keychain();
  std::vector<qvr::KeychainItemName> names;
  EXPECT_EQ(items->list(&names), qvr::errSecSuccess);
  Records records;
  for (const qvr::KeychainItemName& name : names) {
    qvr::KeychainQuery query = queryFor(name);
    query.emplace(qvr::kSecReturnData, true);
    EXPECT_EQ(items->copyMatching(query, &records[name]), qvr::errSecSuccess);
  }
  return records;
}

void CommandTest::removeRecords() const {
  for (const auto& [name, data] : records())
    EXPECT_EQ(keychain()->remove(queryFor(name)), qvr::errSecSuccess);
}

void CommandTest::changeConfiguration(const std::string& text, const std::string& replacement) {
  const std::string name = "config/qvr-oauth2/config.toml";
  std::ifstream file(folder.file(name));
  std::string content(std::istreambuf_iterator<char>(file), {});
  const std::size_t place = content.find(text);
  ASSERT_NE(place, std::string::npos) << text;
  folder.write(name, content.replace(place, text.size(), replacement));
}

}  // namespace e2e
