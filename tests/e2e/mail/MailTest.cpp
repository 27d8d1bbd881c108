#include "tests/e2e/mail/MailTest.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace e2e {

using testing::HasSubstr;

MailTest::MailTest() {
  std::filesystem::create_directories(folder.file("bin"));
  std::filesystem::create_symlink(QVR_OAUTH2_PROGRAM, folder.file("bin/qvr-oauth2"));
}

std::string MailTest::recipe(const std::string& name) const {
  return fillTemplate("recipes/" + name, {{"PROVIDER", provider()},
                                          {"USER", kUser},
                                          {"USER_IN_URL", "alice%40example.com"},
                                          {"IMAP_HOST", MailServer::kHost},
                                          {"IMAP_PORT", server.imapPort()},
                                          {"SMTP_HOST", MailServer::kHost},
                                          {"SMTP_PORT", server.smtpPort()},
                                          {"HOME", folder.path()},
                                          {"MDA", "cat >> " + folder.file("Mail/fetched")},
                                          {"CA_FILE", counterpart.certificateAuthority()}});
}

std::string MailTest::install(const std::string& name, const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(folder.file(path)).parent_path());
  return folder.write(path, recipe(name));
}

// Programs that trust what the system trusts are told by the variables of their TLS libraries.
std::map<std::string, std::string> MailTest::environment() const {
  return {{"HOME", folder.path()},
          {"XDG_CONFIG_HOME", folder.file("config")},
          {"XDG_DATA_HOME", folder.file("data")},
          {"XDG_CACHE_HOME", folder.file("cache")},
          {"XDG_RUNTIME_DIR", folder.file("run")},
          {"DISPLAY", ""},
          {"WAYLAND_DISPLAY", ""},
          {"PATH", folder.file("bin") + ":" + std::getenv("PATH")},
          {"SSL_CERT_FILE", counterpart.certificateAuthority()},
          {"CURL_CA_BUNDLE", counterpart.certificateAuthority()}};
}

Result MailTest::client(const std::vector<std::string>& arguments, int seconds) {
  support::ChildProcess::Options options{{"timeout", "--kill-after=2", std::to_string(seconds)},
                                         environment()};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  support::ChildProcess process(options);
  process.closeInput();
  const int status = process.wait(seconds + 10);
  EXPECT_NE(status, -1) << arguments.front() << " left something behind that still runs";
  return {status, process.output(), process.error()};
}

Result MailTest::onTerminal(const std::vector<std::string>& steps,
                            const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"python3", QVR_MAIL_FOLDER "/programs/terminal.py", "20"};
  all.insert(all.end(), steps.begin(), steps.end());
  all.emplace_back("--");
  all.insert(all.end(), arguments.begin(), arguments.end());
  return client(all, 25);
}

void MailTest::printARefusedToken(const std::string& text) {
  const std::string path = folder.write("refused", "#!/bin/sh\necho " + text + "\n");
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  std::filesystem::rename(path, folder.file("bin/qvr-oauth2"));
}

std::string MailTest::filesBelow(const std::string& path) const {
  std::string all;
  if (!std::filesystem::exists(folder.file(path))) return all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.file(path))) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    all.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return all;
}

std::string MailTest::token() {
  const Result result = run({"token", provider(), kUser});
  EXPECT_EQ(result.status, 0) << result.error;
  return result.output.substr(0, result.output.find('\n'));
}

void MailTest::expectSent(const std::string& subject) {
  const std::string& sent = server.waitForSentLetter();
  EXPECT_THAT(sent, HasSubstr("Subject: " + subject)) << server.log();
  EXPECT_THAT(sent, HasSubstr(std::string("MAIL FROM:<") + kUser + ">"));
  EXPECT_THAT(sent, HasSubstr(std::string("RCPT TO:<") + kFriend + ">"));
}

}  // namespace e2e
