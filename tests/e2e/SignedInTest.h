// The fixture of the end-to-end tests: the library with its own ports, in a world of its own,
// against the counterpart. Both providers run the same tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "src/platform/World.h"
#include "tests/e2e/Counterpart.h"
#include "tests/e2e/Event.h"
#include "tests/support/ChildProcess.h"

namespace e2e {

// Remembers the URLs that the library opens; the test decides what the user does with them.
class RecordingWorkspace final : public qvr::Workspace {
 public:
  bool openURL(const qvr::URL& url) override {
    opened.push_back(url.absoluteString());
    return true;
  }
  std::vector<std::string> opened;
};

using AuthorizationOutcome = std::pair<qvr::Ref<QVROAuth2AuthorizationResponse>, qvr::ErrorPtr>;
using TokenOutcome = std::pair<qvr::Ref<QVROAuth2Token>, qvr::ErrorPtr>;
using ResponseOutcome = std::pair<qvr::Ref<QVROAuth2AccessTokenResponse>, qvr::ErrorPtr>;

// The parameter is the provider's exact name.
class SignedInTest : public testing::TestWithParam<std::string> {
 protected:
  static constexpr const char* kUser = "alice@example.com";

  SignedInTest();

  // A client of the test's provider, with mail scopes.
  qvr::Ref<QVROAuth2PublicClient> makeClient() const;

  // What the user does in the browser: walks the pages, and answers the redirect.
  std::string browse(const std::string& url, const std::string& user = kUser, bool denies = false);

  // The whole front channel of one attempt.
  AuthorizationOutcome authorize(QVROAuth2PublicClient& client, const std::string& user = kUser,
                                 bool denies = false);

  ResponseOutcome exchange(const QVROAuth2PublicClient& client, qvr::TextView code);

  // Signs in and stores the record, as a host does; answers the record.
  qvr::Ref<QVROAuth2Token> signIn(const std::string& user = kUser);

  TokenOutcome request(const std::string& user = kUser);
  TokenOutcome stored(const std::string& user = kUser);
  void store(const qvr::Ref<QVROAuth2Token>& token, const std::string& user = kUser);
  qvr::ErrorPtr revoke(const QVROAuth2PublicClient& client, qvr::TextView token);

  // The same record, made so long ago that it is due now.
  static qvr::Ref<QVROAuth2Token> due(const QVROAuth2Token& token);

  const std::string& provider() const { return GetParam(); }
  std::string side() const {
    return provider() == QVROAuth2ProviderGoogle ? "google" : "microsoft";
  }
  QVROAuth2TokenManager* manager() { return QVROAuth2TokenManager::sharedOAuth2TokenManager(); }
  std::int64_t count(const std::string& kind) { return counterpart.count(side(), kind); }

  // Asks the server until it has counted so many, or has been asked too often.
  bool isCounted(const std::string& kind, std::int64_t wanted);

  support::TemporaryFolder folder;
  Counterpart counterpart{folder.file("provider")};
  qvr::ScopedWorld world;
  qvr::Ref<RecordingWorkspace> workspace = qvr::makeRef<RecordingWorkspace>();
};

// The name of a parameterised test's instance.
inline std::string nameOf(const testing::TestParamInfo<std::string>& info) {
  return info.param;
}

}  // namespace e2e
