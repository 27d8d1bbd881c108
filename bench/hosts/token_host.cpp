// A host on the shared library, without the HTTPS port: makes 1,000 requests, a hundred at a time,
// and prints how much memory it has resident then.
#include <cstdio>
#include <cstdlib>
#include <semaphore>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "bench/Memory.h"

namespace {

constexpr const char* kUser = "user@example.org";
constexpr int kRounds = 10;
constexpr int kAtATime = 100;

void check(bool isRight, const char* what) {
  if (isRight) return;
  std::fprintf(stderr, "%s\n", what);
  std::_Exit(1);
}

void installHost() {
  QVROAuth2Host host;
  host.setBundleIdentifier("org.example.mail");
  host.setKeychainItems(qvr::makeInMemoryKeychain());
  host.install();
}

// A record of 5 KB that needs no refresh.
void storeToken() {
  std::binary_semaphore isStored(0);
  QVROAuth2TokenManager::sharedOAuth2TokenManager()->setTokenToKeychain(
      QVROAuth2Token::initWithAccessToken(
          std::string(2400, 's'), "Bearer", 3600.0, std::string(2400, 'r'),
          qvr::TextSet{"https://mail.google.com/", "openid"}, qvr::makeSystemClock()()),
      QVROAuth2ProviderGoogle, kUser, [&](const qvr::ErrorPtr& error) {
        check(!error, "the token cannot be stored");
        isStored.release();
      });
  isStored.acquire();
}

void requestTokens() {
  std::counting_semaphore<kAtATime> answers(0);
  for (int request = 0; request < kAtATime; ++request) {
    QVROAuth2TokenManager::sharedOAuth2TokenManager()->requestAccessTokenForProvider(
        QVROAuth2ProviderGoogle, kUser,
        [&](const qvr::Ref<QVROAuth2Token>& token, const qvr::ErrorPtr&) {
          check(token && token->accessToken()->size() == 2400, "not the token that was stored");
          answers.release();
        });
  }
  for (int answer = 0; answer < kAtATime; ++answer)
    answers.acquire();
}

}  // namespace

int main() {
  installHost();
  storeToken();
  for (int round = 0; round < kRounds; ++round)
    requestTokens();
  std::printf("%zu\n", qvr::bench::residentBytes());
}
