// The front channel and the code exchange, against both providers.

#include <gmock/gmock.h>

#include "tests/e2e/SignedInTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;

class SignInTest : public SignedInTest {};
INSTANTIATE_TEST_SUITE_P(Providers, SignInTest, testing::Values("Google", "Microsoft"), nameOf);

TEST_P(SignInTest, SignsInAndServesTheStoredToken) {
  const auto token = signIn();
  ASSERT_TRUE(token);
  EXPECT_TRUE(token->refreshToken());
  const auto [served, error] = request();
  ASSERT_TRUE(served) << error->description();
  EXPECT_EQ(served->accessToken(), token->accessToken());
  EXPECT_TRUE(counterpart.isActive(side(), *served->accessToken()));
  EXPECT_EQ(count("codeExchanges"), 1);
  EXPECT_EQ(count("refreshes"), 0);
}

TEST_P(SignInTest, TheDelegatedScopesAreGranted) {
  const auto client = makeClient();
  const auto [authorization, denial] = authorize(*client);
  ASSERT_TRUE(authorization);
  const auto [response, error] = exchange(*client, authorization->code());
  ASSERT_TRUE(response) << error->description();
  EXPECT_THAT(response->scope().text().value_or(""),
              HasSubstr(provider() == "Google" ? "https://mail.google.com/"
                                               : "https://outlook.office.com/IMAP"));
}

TEST_P(SignInTest, DenialReachesTheHandlerAsAccessDenied) {
  const auto client = makeClient();
  const auto [authorization, error] = authorize(*client, kUser, true);
  EXPECT_FALSE(authorization);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(QVROAuth2ErrorDomain, QVROAuth2ErrorAccessDenied)) << error->description();
  EXPECT_FALSE(client->isRequestingAuthorization());
}

TEST_P(SignInTest, ARedirectAfterCancellationIsIgnored) {
  const auto client = makeClient();
  std::vector<qvr::ErrorPtr> outcomes;
  client->requestAuthorizationCode(
      [&outcomes](const auto&, qvr::ErrorPtr error) { outcomes.push_back(std::move(error)); });
  client->cancelRequestAuthorizationCode();
  QVROAuth2PublicClient::handleGetURLEvent(
      {browse(workspace->opened.back()), std::nullopt, std::nullopt});
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_TRUE(outcomes[0]->is(qvr::NSURLErrorDomain, qvr::NSURLErrorUserCancelledAuthentication));
}

TEST_P(SignInTest, TwoSignInsAtOnceEachGetTheirOwnRedirect) {
  const auto first = makeClient();
  const auto second = makeClient();
  std::vector<std::string> order;
  qvr::Text firstCode;
  qvr::Text secondCode;
  first->requestAuthorizationCode([&](const auto& response, const auto&) {
    order.emplace_back("first");
    firstCode = response->code();
  });
  second->requestAuthorizationCode([&](const auto& response, const auto&) {
    order.emplace_back("second");
    secondCode = response->code();
  });
  const std::string firstRedirect = browse(workspace->opened[0], "alice@example.com");
  const std::string secondRedirect = browse(workspace->opened[1], "bob@example.com");
  QVROAuth2PublicClient::handleGetURLEvent({secondRedirect, std::nullopt, std::nullopt});
  QVROAuth2PublicClient::handleGetURLEvent({firstRedirect, std::nullopt, std::nullopt});
  EXPECT_EQ(order, (std::vector<std::string>{"second", "first"}));
  EXPECT_TRUE(exchange(*first, firstCode).first);
  EXPECT_TRUE(exchange(*second, secondCode).first);
}

TEST_P(SignInTest, ACodeWithTheWrongVerifierIsRefused) {
  const auto client = makeClient();
  const auto other = makeClient();
  const auto [authorization, denial] = authorize(*client);
  ASSERT_TRUE(authorization);
  other->requestAuthorizationCode([](const auto&, const auto&) {});  // has a verifier of its own
  const auto [response, error] = exchange(*other, authorization->code());
  EXPECT_FALSE(response);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(QVROAuth2ErrorDomain, QVROAuth2ErrorInvalidGrant)) << error->description();
  other->cancelRequestAuthorizationCode();
}

TEST_P(SignInTest, ACodeIsGoodForOneExchange) {
  const auto client = makeClient();
  const auto [authorization, denial] = authorize(*client);
  ASSERT_TRUE(authorization);
  EXPECT_TRUE(exchange(*client, authorization->code()).first);
  const auto [response, error] = exchange(*client, authorization->code());
  EXPECT_FALSE(response);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(QVROAuth2ErrorDomain, QVROAuth2ErrorInvalidGrant)) << error->description();
}

}  // namespace
}  // namespace e2e
