// What the tests of the token manager share: a manager on manual queues, stored tokens, and
// handlers that note their answers.
#pragma once

#include <string>
#include <vector>

#include "src/manager/TokenArchive.h"
#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace support {

inline constexpr const char* kUser = "user@example.org";
inline constexpr const char* kGoogleService = "org.example.mail.Google.OAuth2Token";
inline constexpr const char* kMicrosoftService = "org.example.mail.Microsoft.OAuth2Token";
inline constexpr const char* kWorkQueue = "org.example.mail.QVROAuth2Keychain.queue";
inline constexpr const char* kDelegateQueue = "org.example.mail.QVROAuth2Keychain.delegateQueue";
inline constexpr const char* kCallbackQueue = "callbacks";

// A token endpoint's answer to a refresh.
inline constexpr const char* kRefreshedBody =
    R"({"access_token":"refreshed","token_type":"Bearer","expires_in":3600})";

// The bytes under which a token is stored.
inline qvr::Data archiveOf(const qvr::Ref<QVROAuth2Token>& token) {
  qvr::ErrorPtr error;
  const std::optional<qvr::Data> data = archivedToken(*token, &error);
  EXPECT_TRUE(data) << error->description();
  return data.value_or(qvr::Data());
}

struct Answer {
  std::string name;
  qvr::Ref<QVROAuth2Token> token;
  qvr::ErrorPtr error;
};

MATCHER_P(IsAnswered, name, "") {
  return arg.name == name;
}
MATCHER_P2(HasToken, name, token, "") {
  return arg.name == name && arg.token == token && arg.token && !arg.error;
}
MATCHER_P3(HasError, name, domain, code, "") {
  *result_listener << (arg.error ? arg.error->description() : "no error");
  return arg.name == name && !arg.token && arg.error && arg.error->is(domain, code);
}

// For tests that change `host`; they call start() afterwards.
class UnstartedManagerTest : public LibraryTest {
 protected:
  void start() {
    installHost();
    manager = QVROAuth2TokenManager::sharedOAuth2TokenManager();
  }

  // Created an hour ago, with an hour's lifetime; and created now.
  qvr::Ref<QVROAuth2Token> dueToken(qvr::TextView accessToken = "due") const {
    return makeToken(accessToken, 3600, "rt", clock->now - 3600);
  }
  qvr::Ref<QVROAuth2Token> freshToken(qvr::TextView accessToken = "fresh") const {
    return makeToken(accessToken, 3600, "rt", clock->now);
  }

  void put(const qvr::Ref<QVROAuth2Token>& token, const char* service = kGoogleService,
           const char* account = kUser) {
    keychain->put(service, account, archiveOf(token));
  }
  qvr::Ref<QVROAuth2Token> stored(const char* service = kGoogleService,
                                  const char* account = kUser) const {
    const std::optional<qvr::Data> data = keychain->stored(service, account);
    qvr::ErrorPtr error;
    return data ? unarchivedToken(*data, &error) : nullptr;
  }
  std::string storedAccessToken() const {
    const qvr::Ref<QVROAuth2Token> token = stored();
    return token ? token->accessToken().value_or("") : "";
  }

  // A handler that adds an answer under the name.
  QVROAuth2TokenCompletionHandler note(const std::string& name) {
    return [this, name](const qvr::Ref<QVROAuth2Token>& token, const qvr::ErrorPtr& error) {
      answers.push_back({name, token, error});
    };
  }
  void request(const std::string& name, qvr::TextView provider = QVROAuth2ProviderGoogle,
               qvr::TextView username = kUser) {
    manager->requestAccessTokenForProvider(provider, username, note(name));
  }

  // Runs the keychain's queues, but not the session's.
  void runKeychain() { queues.runAll(); }

  // A request for a token that is due, up to its running refresh.
  FakeTask& startRefresh(const std::string& name) {
    request(name);
    runKeychain();
    return session->last();
  }

  // Runs everything; the labels of the queues on which an answer was noted, one for each.
  std::vector<std::string> queuesThatAnswered() {
    std::vector<std::string> labels;
    for (bool ran = true; ran;) {
      ran = false;
      for (const auto& queue :
           {queues.named(kWorkQueue), queues.named(kDelegateQueue), callbackQueue}) {
        const std::size_t before = answers.size();
        if (!queue || !queue->runOne()) continue;
        ran = true;
        labels.insert(labels.end(), answers.size() - before, queue->label());
      }
    }
    return labels;
  }

  QVROAuth2TokenManager* manager = nullptr;
  std::vector<Answer> answers;
};

class ManagerTest : public UnstartedManagerTest {
 protected:
  ManagerTest() { start(); }
};

}  // namespace support
