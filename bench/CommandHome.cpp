#include "bench/CommandHome.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "QVROAuth2Client/platform/Ports.h"

namespace qvr::bench {
namespace {

constexpr double kDay = 86'400;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

std::string newFolder() {
  std::string path = std::filesystem::temp_directory_path().string() + "/qvr-bench-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) fail("no temporary folder can be made");
  return path;
}

void makePrivateFolder(const std::string& path) {
  std::filesystem::create_directories(path);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

}  // namespace

CommandHome::CommandHome(const std::string& keychainKind) : path_(newFolder()) {
  makePrivateFolder(keyFolder());
  makePrivateFolder(path_ + "/run");
  const std::string file = keyFolder() + "/config.toml";
  std::ofstream(file) << "bundle_identifier = \"" << kBundleIdentifier << "\"\n\n"
                      << "[google]\n"
                      << "client_identifier = \"123456789-abcdefgh.apps.example.com\"\n"
                      << "client_secret = \"example-client-secret\"\n"
                      << "custom_uri_scheme = \"com.example.mail\"\n\n"
                      << "[keychain]\n"
                      << "kind = \"" << keychainKind << "\"\n";
  std::filesystem::permissions(
      file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

CommandHome::~CommandHome() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> CommandHome::environment() const {
  const char* const path = std::getenv("PATH");
  return {"HOME=" + path_, "XDG_RUNTIME_DIR=" + path_ + "/run", "LANG=C.UTF-8",
          std::string("PATH=") + (path != nullptr ? path : "/usr/bin:/bin")};
}

std::string storeFreshToken(const Ref<KeychainItems>& keychain) {
  QVROAuth2Host host;
  host.setBundleIdentifier(kBundleIdentifier);
  host.setKeychainItems(keychain);
  host.install();
  const std::string accessToken(2400, 'a');
  const auto record = QVROAuth2Token::initWithAccessToken(
      accessToken, "Bearer", kDay, std::string(2400, 'r'),
      TextSet{"https://mail.google.com/", "openid", "email"}, makeSystemClock()());
  std::promise<ErrorPtr> stored;
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->setTokenToKeychain(
      record, QVROAuth2ProviderGoogle, kUser,
      [&stored](ErrorPtr error) { stored.set_value(std::move(error)); });
  const ErrorPtr error = stored.get_future().get();
  if (error) fail("the token cannot be stored: " + error->description());
  return accessToken;
}

}  // namespace qvr::bench
