// Clients whose protected operations a test can reach, and a provider of the test's own.
#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "src/client/PendingAuthorizations.h"
#include "src/platform/PercentCoding.h"
#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace support {

// A client class with everything in reach.
template <class Client>
class Opened : public Client {
 public:
  Opened() = default;
  Opened(qvr::TextView identifier, qvr::TextView secret) : Client(identifier, secret) {}
  ~Opened() override {
    if (destroyed) *destroyed = true;
  }

  using Client::accessTokenRequestWithAuthorizationCode;
  using Client::authorizationURL;
  using Client::authorizationURLQueries;
  using Client::codeChallenge;
  using Client::codeChallengeMethod;
  using Client::codeVerifier;
  using Client::formParametersForRefreshingAccessTokenWithRefreshToken;
  using Client::formParametersForRequestingAccessTokenWithAuthorizationCode;
  using Client::formParametersForRevokingToken;
  using Client::generateCodeVerifier;
  using Client::generateRandomBytesAndReturnError;
  using Client::queryPercentEncoded;
  using Client::refreshAccessTokenRequestWithRefreshToken;
  using Client::S256CodeChallengeWithCodeVerifier;
  using Client::setCodeChallenge;
  using Client::setCodeChallengeMethod;
  using Client::setCodeVerifier;
  using Client::setState;
  using Client::state;
  using Client::tokenRevocationRequestWithToken;

  std::shared_ptr<bool> destroyed;  // set to true when the client goes
};

using BareClient = Opened<QVROAuth2PublicClient>;
using GoogleClient = Opened<QVRGoogleOAuth2PublicClient>;
using MicrosoftClient = Opened<QVRMicrosoftOAuth2PublicClient>;

// A provider whose hooks answer what the test sets.
class TestClient final : public BareClient {
 public:
  explicit TestClient(qvr::TextView identifier = "id", qvr::TextView secret = nullptr)
      : BareClient(identifier, secret) {}

  qvr::Text provider() const override { return "Test"; }
  qvr::Text customURIScheme() const override { return "m.x"; }
  qvr::Text redirectURI() const override { return redirect; }
  qvr::Text authorizationURI() const override { return authorization; }
  qvr::Text tokenURI() const override { return token; }
  qvr::Text revokeURI() const override { return revoke; }

  qvr::Text redirect = "m.x://auth";
  qvr::Text authorization = "https://login.example/authorize";
  qvr::Text token = "https://login.example/token";
  qvr::Text revoke = "https://login.example/revoke";
};

// What an authorization handler was called with, call by call.
struct AuthorizationOutcomes {
  struct Call {
    qvr::Ref<QVROAuth2AuthorizationResponse> response;
    qvr::ErrorPtr error;
  };

  QVROAuth2AuthorizationCompletionHandler handler() {
    return [calls = calls](qvr::Ref<QVROAuth2AuthorizationResponse> response, qvr::ErrorPtr error) {
      calls->push_back({std::move(response), std::move(error)});
    };
  }
  std::size_t count() const { return calls->size(); }
  const Call& only() const { return calls->at(0); }

  // The code of the one response, or what came in its place.
  qvr::Text code() const {
    if (count() != 1) return std::to_string(count()) + " calls";
    return only().response ? only().response->code() : qvr::Text("no response");
  }

  std::shared_ptr<std::vector<Call>> calls = std::make_shared<std::vector<Call>>();
};

// The pairs of a URL's query in their order, still encoded.
inline std::vector<std::string> pairsOf(const qvr::URL& url) {
  std::vector<std::string> pairs;
  std::istringstream query(url.query().value_or(""));
  for (std::string pair; std::getline(query, pair, '&');)
    pairs.push_back(pair);
  return pairs;
}

// A fixture of the interactive authorization.
class AuthorizationTest : public LibraryTest {
 protected:
  AuthorizationTest() { installHost(); }

  static qvr::GetURLEvent redirect(std::string_view url) { return {std::string(url), {}, {}}; }

  // What the browser is sent to when the provider is done with an attempt of this state.
  static std::string microsoftRedirect(const qvr::Text& state, std::string_view more = "code=c") {
    return "msauth.org.example.mail://auth?" + std::string(more) + "&state=" + encoded(state);
  }
  static std::string googleRedirect(const qvr::Text& state, std::string_view more = "code=c") {
    return "com.example.mail:/oauth2/auth?" + std::string(more) + "&state=" + encoded(state);
  }
  static void deliver(std::string_view url) {
    QVROAuth2PublicClient::handleGetURLEvent(redirect(url));
  }

  static std::size_t pendingCount() {
    auto& pending = PendingAuthorizations::shared();
    qvr::MutexLock lock(pending.authorizationCompletionHandlersLock);
    return pending.authorizationCompletionHandlers.size();
  }

 private:
  static std::string encoded(const qvr::Text& state) {
    return qvr::percentEncoded(state, qvr::CharacterSet("")).value_or("no state");
  }
};

}  // namespace support
