#include "tests/e2e/SignedInTest.h"

namespace e2e {

namespace {

qvr::Ref<qvr::KeychainItems> keychainIn(const support::TemporaryFolder& folder) {
  qvr::EncryptedFileKeychainOptions options;
  options.directory = folder.file("items");
  options.keyFile = folder.file("keys/key");
  return qvr::makeEncryptedFileKeychain(options);
}

}  // namespace

SignedInTest::SignedInTest() {
  QVROAuth2Host host;
  host.setBundleIdentifier(counterpart.ready("bundleIdentifier"));
  host.setGoogleRegistration(counterpart.ready("google", "clientId"),
                             counterpart.ready("google", "clientSecret"),
                             counterpart.ready("google", "scheme"));
  host.setMicrosoftApplicationIdentifier(counterpart.ready("microsoft", "clientId"));
  host.setGoogleAuthorizationHost(counterpart.ready("google", "host"));
  host.setGoogleTokenHost(counterpart.ready("google", "host"));
  host.setMicrosoftLoginHost(counterpart.ready("microsoft", "host"));
  qvr::URLSessionOptions options;
  options.certificateAuthorityFile = counterpart.certificateAuthority();
  options.idleTimeoutSeconds = 3;
  host.setURLSession(qvr::makeURLSession(options));
  host.setKeychainItems(keychainIn(folder));
  host.setWorkspace(workspace);
  host.install();
}

qvr::Ref<QVROAuth2PublicClient> SignedInTest::makeClient() const {
  if (provider() == QVROAuth2ProviderGoogle) {
    const auto client = QVRGoogleOAuth2PublicClient::init();
    client->setScope("https://mail.google.com/");
    client->setLoginHint(kUser);
    return client;
  }
  const auto client = QVRMicrosoftOAuth2PublicClient::init();
  client->setScope("https://outlook.office.com/IMAP.AccessAsUser.All offline_access");
  client->setLoginHint(kUser);
  return client;
}

std::string SignedInTest::browse(const std::string& url, const std::string& user, bool denies) {
  const auto browser = startBrowser(counterpart.certificateAuthority(), user, url, denies);
  EXPECT_EQ(browser->wait(), 0) << browser->error();
  return browser->output().substr(0, browser->output().find('\n'));
}

AuthorizationOutcome SignedInTest::authorize(QVROAuth2PublicClient& client, const std::string& user,
                                             bool denies) {
  return awaitPair<qvr::Ref<QVROAuth2AuthorizationResponse>, qvr::ErrorPtr>([&](auto handler) {
    client.requestAuthorizationCode(handler);
    QVROAuth2PublicClient::handleGetURLEvent(
        {browse(workspace->opened.back(), user, denies), std::nullopt, std::nullopt});
  });
}

ResponseOutcome SignedInTest::exchange(const QVROAuth2PublicClient& client, qvr::TextView code) {
  return awaitPair<qvr::Ref<QVROAuth2AccessTokenResponse>, qvr::ErrorPtr>([&](auto handler) {
    client.taskForRequestingAccessTokenWithAuthorizationCode(code, handler)->resume();
  });
}

qvr::Ref<QVROAuth2Token> SignedInTest::signIn(const std::string& user) {
  const auto client = makeClient();
  const auto [authorization, denial] = authorize(*client, user);
  EXPECT_TRUE(authorization) << denial->description();
  if (!authorization) return nullptr;
  const auto [response, error] = exchange(*client, authorization->code());
  EXPECT_TRUE(response) << error->description();
  if (!response) return nullptr;
  const auto token = QVROAuth2Token::initWithAccessToken(
      response->accessToken().text(), response->tokenType().text(),
      response->expiresIn().numberValue(), response->refreshToken().text(),
      qvr::TextSet{response->scope().text().value_or("")}, qvr::makeSystemClock()());
  store(token, user);
  return token;
}

TokenOutcome SignedInTest::request(const std::string& user) {
  return awaitPair<qvr::Ref<QVROAuth2Token>, qvr::ErrorPtr>(
      [&](auto handler) { manager()->requestAccessTokenForProvider(provider(), user, handler); });
}

TokenOutcome SignedInTest::stored(const std::string& user) {
  return awaitPair<qvr::Ref<QVROAuth2Token>, qvr::ErrorPtr>(
      [&](auto handler) { manager()->getTokenFromKeychainForProvider(provider(), user, handler); });
}

void SignedInTest::store(const qvr::Ref<QVROAuth2Token>& token, const std::string& user) {
  std::promise<qvr::ErrorPtr> promise;
  std::future<qvr::ErrorPtr> future = promise.get_future();
  manager()->setTokenToKeychain(token, provider(), user, [&promise](qvr::ErrorPtr error) {
    promise.set_value(std::move(error));
  });
  const qvr::ErrorPtr error = await(std::move(future));
  EXPECT_EQ(error, nullptr) << error->description();
}

qvr::ErrorPtr SignedInTest::revoke(const QVROAuth2PublicClient& client, qvr::TextView token) {
  std::promise<qvr::ErrorPtr> promise;
  std::future<qvr::ErrorPtr> future = promise.get_future();
  client
      .taskForRevokingToken(
          token, "refresh_token",
          [&promise](qvr::ErrorPtr error) { promise.set_value(std::move(error)); })
      ->resume();
  return await(std::move(future));
}

qvr::Ref<QVROAuth2Token> SignedInTest::due(const QVROAuth2Token& token) {
  return QVROAuth2Token::initWithAccessToken(token.accessToken(), token.tokenType(),
                                             token.expiresIn(), token.refreshToken(),
                                             token.grantedScopes(), qvr::Date{0});
}

bool SignedInTest::isCounted(const std::string& kind, std::int64_t wanted) {
  constexpr int kMostQuestions = 10000;
  for (int asked = 0; asked < kMostQuestions; ++asked) {
    if (count(kind) >= wanted) return true;
  }
  return false;
}

}  // namespace e2e
