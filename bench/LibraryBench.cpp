// What the library's own work costs, without the network or a keychain, each case beside its floor.
#include <benchmark/benchmark.h>

#include <string>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "bench/floor/Floor.h"
#include "src/manager/TokenArchive.h"

namespace {

constexpr const char* kEndpoint = "https://accounts.google.com/o/oauth2/auth";
constexpr const char* kClientIdentifier = "123456789-abcdefghijklmnop.apps.example.com";
constexpr const char* kRedirectURI = "com.example.mail:/oauth2/auth";
constexpr const char* kScope = "https://mail.google.com/ openid email";

// A client whose attempt can be made without a browser.
class Client final : public QVRGoogleOAuth2PublicClient {
 public:
  std::size_t authorizationURLOfNewAttempt() {
    setState(generateRandomBytesAndReturnError());
    setCodeVerifier(generateCodeVerifier());
    setCodeChallenge(S256CodeChallengeWithCodeVerifier(codeVerifier()));
    setCodeChallengeMethod("S256");
    return authorizationURL()->absoluteString().size();
  }
};

void floorOfAuthorizationURL(benchmark::State& state) {
  char out[2048];
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        floor_authorization_url(kEndpoint, kClientIdentifier, kRedirectURI, kScope, out));
  }
}
BENCHMARK(floorOfAuthorizationURL);

void authorizationURL(benchmark::State& state) {
  const auto client = qvr::makeRef<Client>();
  client->setScope(kScope);
  for (auto _ : state)
    benchmark::DoNotOptimize(client->authorizationURLOfNewAttempt());
}
BENCHMARK(authorizationURL);

// A token response of 5 KB.
std::string responseText() {
  return R"({"access_token":")" + std::string(2400, 'a') + R"(","token_type":"Bearer",)" +
         R"("expires_in":3599,"refresh_token":")" + std::string(1200, 'r') + R"(","id_token":")" +
         std::string(1200, 'i') + R"(","scope":"https://mail.google.com/ openid email"})";
}

void floorOfTokenResponse(benchmark::State& state) {
  const std::string text = responseText();
  for (auto _ : state)
    benchmark::DoNotOptimize(floor_token_response(text.data(), text.size()));
}
BENCHMARK(floorOfTokenResponse);

void tokenResponse(benchmark::State& state) {
  const std::string text = responseText();
  const qvr::Data data(text.begin(), text.end());
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        QVROAuth2AccessTokenResponse::accessTokenResponseWithData(data, nullptr));
  }
}
BENCHMARK(tokenResponse);

qvr::Ref<QVROAuth2Token> record() {
  return QVROAuth2Token::initWithAccessToken(
      std::string(2400, 'a'), "Bearer", 3599.0, std::string(2400, 'r'),
      qvr::TextSet{"https://mail.google.com/", "openid", "email"}, qvr::Date{700000000});
}

void archiveWritten(benchmark::State& state) {
  const auto token = record();
  qvr::ErrorPtr error;
  for (auto _ : state)
    benchmark::DoNotOptimize(archivedToken(*token, &error));
}
BENCHMARK(archiveWritten);

void archiveRead(benchmark::State& state) {
  qvr::ErrorPtr error;
  const qvr::Data archive = archivedToken(*record(), &error).value();
  for (auto _ : state)
    benchmark::DoNotOptimize(unarchivedToken(archive, &error));
}
BENCHMARK(archiveRead);

}  // namespace

int main(int argc, char** argv) {
  QVROAuth2Host host;
  host.setGoogleRegistration(kClientIdentifier, "", "com.example.mail");
  host.setKeychainItems(qvr::makeInMemoryKeychain());
  host.install();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
