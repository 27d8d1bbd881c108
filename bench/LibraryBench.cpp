// What the library's own work costs, without the network or a keychain.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "bench/Allocations.h"
#include "bench/InTurns.h"
#include "bench/floor/Archive.h"
#include "bench/floor/Floor.h"
#include "src/manager/TokenArchive.h"

namespace {

using qvr::bench::allocationsOf;
using qvr::bench::measureInTurns;
using qvr::bench::Samples;
using qvr::bench::secondsEach;

constexpr const char* kEndpoint = "https://accounts.google.com/o/oauth2/auth";
constexpr const char* kClientIdentifier = "123456789-abcdefghijklmnop.apps.example.com";
constexpr const char* kRedirectURI = "com.example.mail:/oauth2/auth";
constexpr const char* kScope = "https://mail.google.com/ openid email";

// A figure of work that was not done would be worthless.
void require(bool isRight, const char* work) {
  if (isRight) return;
  std::fprintf(stderr, "%s: the result is wrong\n", work);
  std::exit(1);
}

// A client whose attempt can be made without a browser, as requestAuthorizationCode() makes it.
class Client final : public QVRGoogleOAuth2PublicClient {
 public:
  std::optional<qvr::URL> authorizationURLOfNewAttempt() {
    setState(generateRandomBytesAndReturnError());
    const std::string verifier = generateCodeVerifier();
    setCodeVerifier(verifier);
    setCodeChallenge(S256CodeChallengeWithCodeVerifier(verifier));
    setCodeChallengeMethod("S256");
    return authorizationURL();
  }
};

// The URL with the random values of its attempt, which have no fixed length once they are encoded,
// left out. What is left holds every other parameter.
std::string withoutRandomValues(std::string url) {
  constexpr std::string_view kChallenge = "&code_challenge=";
  constexpr std::size_t kChallengeLength = 43;
  url.erase(url.find("&state=") + 7);
  return url.erase(url.find(kChallenge) + kChallenge.size(), kChallengeLength);
}

void authorization_url(benchmark::State& state) {
  floor_attempt attempt;
  const auto floor = [&attempt] {
    benchmark::DoNotOptimize(
        floor_authorization_url(kEndpoint, kClientIdentifier, kRedirectURI, kScope, &attempt));
  };
  const auto client = qvr::makeRef<Client>();
  client->setScope(kScope);
  const auto work = [&client] { benchmark::DoNotOptimize(client->authorizationURLOfNewAttempt()); };
  floor();
  require(withoutRandomValues(attempt.url) ==
              withoutRandomValues(client->authorizationURLOfNewAttempt()->absoluteString()),
          "authorization_url");
  state.counters["allocations"] = allocationsOf(work);
  measureInTurns(state, 100, floor, work);
}
BENCHMARK(authorization_url)->UseManualTime()->Iterations(1000);

// A token response whose ID token the library does not need.
qvr::Data responseData(std::size_t accessTokenLength, std::size_t otherTokensLength) {
  const std::string other(otherTokensLength, 'o');
  const std::string text = R"({"access_token":")" + std::string(accessTokenLength, 'a') +
                           R"(","token_type":"Bearer","expires_in":3599,"refresh_token":")" +
                           other + R"(","id_token":")" + other +
                           R"(","scope":"https://mail.google.com/ openid email"})";
  return qvr::Data(text.begin(), text.end());
}

qvr::Ref<QVROAuth2AccessTokenResponse> response(const qvr::Data& data) {
  return QVROAuth2AccessTokenResponse::accessTokenResponseWithData(data, nullptr);
}

void requireAccessToken(const qvr::Data& data, std::size_t length) {
  const auto made = response(data);
  require(made && made->accessToken().text() == std::string(length, 'a'), "token_response");
}

void token_response(benchmark::State& state) {
  constexpr std::size_t kAccessTokenLength = 2400;
  constexpr std::size_t kOtherTokensLength = 1200;
  const qvr::Data data = responseData(kAccessTokenLength, kOtherTokensLength);
  const auto floor = [&data] {
    const std::size_t length =
        floor_token_response(reinterpret_cast<const char*>(data.data()), data.size());
    require(length > kAccessTokenLength + kOtherTokensLength, "floor of token_response");
  };
  const auto work = [&data] { benchmark::DoNotOptimize(response(data)); };
  requireAccessToken(data, kAccessTokenLength);
  state.counters["allocations"] = allocationsOf(work);
  measureInTurns(state, 200, floor, work);
}
BENCHMARK(token_response)->UseManualTime()->Iterations(1000);

// For what has no floor. Makes the counters `median`, `p99` and `allocations`.
template <typename Work>
double measureAlone(benchmark::State& state, int batch, Work&& work) {
  state.counters["allocations"] = allocationsOf(work);
  Samples samples;
  for (auto _ : state) {
    samples.add(secondsEach(batch, work));
    state.SetIterationTime(samples.last());
  }
  samples.report(state, "");
  return samples.quantile(0.5);
}

// The time for each KB of a response.
void measureGrowth(benchmark::State& state, const qvr::Data& data) {
  constexpr std::size_t kBytesPerSample = std::size_t{2} << 20;
  const double seconds = measureAlone(state, static_cast<int>(kBytesPerSample / data.size()),
                                      [&data] { benchmark::DoNotOptimize(response(data)); });
  state.counters["per_item"] = seconds * 1024 / static_cast<double>(data.size());
}

// A response of so many bytes, nearly all of which are the access token.
void growth_token_response(benchmark::State& state) {
  const std::size_t length = static_cast<std::size_t>(state.range(0)) - responseData(0, 40).size();
  const qvr::Data data = responseData(length, 40);
  requireAccessToken(data, length);
  measureGrowth(state, data);
}
BENCHMARK(growth_token_response)
    ->RangeMultiplier(32)
    ->Range(1 << 10, 1 << 20)
    ->UseManualTime()
    ->Iterations(300);

// A response of so many bytes, nearly all of which are members that nobody asked for.
void growth_token_response_members(benchmark::State& state) {
  const auto length = static_cast<std::size_t>(state.range(0));
  std::string text = R"({"access_token":"a")";
  for (std::size_t member = 0; text.size() < length; ++member)
    text.append(R"(,"member_)").append(std::to_string(member)).append(R"(":"a value")");
  text += '}';
  const qvr::Data data(text.begin(), text.end());
  requireAccessToken(data, 1);
  measureGrowth(state, data);
}
BENCHMARK(growth_token_response_members)
    ->RangeMultiplier(32)
    ->Range(1 << 10, 1 << 20)
    ->UseManualTime()
    ->Iterations(300);

// A record of 5 KB, for the library and for the floor.
struct Record {
  std::string accessToken = std::string(2400, 'a');
  std::string tokenType = "Bearer";
  std::string refreshToken = std::string(2400, 'r');
  std::string scopes[3] = {"email", "https://mail.google.com/", "openid"};

  qvr::Ref<QVROAuth2Token> token() const {
    return QVROAuth2Token::initWithAccessToken(accessToken, tokenType, 3599.0, refreshToken,
                                               qvr::TextSet(std::begin(scopes), std::end(scopes)),
                                               qvr::Date{700000000});
  }

  // Points into this.
  floor_token floorToken() {
    return {accessToken.data(),
            tokenType.data(),
            refreshToken.data(),
            {scopes[0].data(), scopes[1].data(), scopes[2].data()},
            3,
            3599,
            700000000};
  }
};

void archive_written(benchmark::State& state) {
  Record record;
  const floor_token floorToken = record.floorToken();
  unsigned char* floorArchive = nullptr;
  const auto floor = [&] {
    benchmark::DoNotOptimize(floor_archive_write(&floorToken, &floorArchive));
    std::free(floorArchive);
  };
  const auto token = record.token();
  const auto work = [&token] { benchmark::DoNotOptimize(archivedToken(*token, nullptr)); };
  const std::size_t length = floor_archive_write(&floorToken, &floorArchive);
  require(archivedToken(*token, nullptr) == qvr::Data(floorArchive, floorArchive + length),
          "archive_written");
  std::free(floorArchive);
  state.counters["allocations"] = allocationsOf(work);
  measureInTurns(state, 100, floor, work);
}
BENCHMARK(archive_written)->UseManualTime()->Iterations(1000);

void archive_read(benchmark::State& state) {
  const auto token = Record().token();
  const qvr::Data archive = archivedToken(*token, nullptr).value();
  const auto floor = [&archive] {
    floor_token read;
    require(floor_archive_read(archive.data(), archive.size(), &read), "floor of archive_read");
    floor_token_clear(&read);
  };
  const auto work = [&archive] { benchmark::DoNotOptimize(unarchivedToken(archive, nullptr)); };
  const auto read = unarchivedToken(archive, nullptr);
  require(read && archivedToken(*read, nullptr) == archive, "archive_read");
  state.counters["allocations"] = allocationsOf(work);
  measureInTurns(state, 100, floor, work);
}
BENCHMARK(archive_read)->UseManualTime()->Iterations(1000);

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
