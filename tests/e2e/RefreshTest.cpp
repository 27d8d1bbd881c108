// The token manager against both providers: refresh with rotation, coalescing, revocation.

#include <atomic>

#include "tests/e2e/SignedInTest.h"

namespace e2e {
namespace {

class RefreshTest : public SignedInTest {};
INSTANTIATE_TEST_SUITE_P(Providers, RefreshTest, testing::Values("Google", "Microsoft"), nameOf);

TEST_P(RefreshTest, ADueTokenIsRefreshedRotatedAndStored) {
  const auto old = signIn();
  ASSERT_TRUE(old);
  store(due(*old));
  const auto [served, error] = request();
  ASSERT_TRUE(served) << error->description();
  EXPECT_NE(served->accessToken(), old->accessToken());
  EXPECT_NE(served->refreshToken(), old->refreshToken());
  EXPECT_TRUE(counterpart.isActive(side(), *served->accessToken()));
  EXPECT_TRUE(counterpart.isActive(side(), *served->refreshToken()));
  EXPECT_FALSE(counterpart.isActive(side(), *old->refreshToken())) << "rotated away";

  const auto [kept, readError] = stored();
  ASSERT_TRUE(kept) << readError->description();
  EXPECT_EQ(kept->accessToken(), served->accessToken());
  EXPECT_EQ(kept->refreshToken(), served->refreshToken());
  EXPECT_EQ(count("refreshes"), 1);
}

TEST_P(RefreshTest, AShortLivedTokenIsDueFromItsFirstSecond) {
  counterpart.setAccessTokenSeconds(side(), 60);
  const auto old = signIn();
  ASSERT_TRUE(old);
  EXPECT_TRUE(old->shouldRefreshToken());
  counterpart.setAccessTokenSeconds(side(), 3600);
  const auto [served, error] = request();
  ASSERT_TRUE(served) << error->description();
  EXPECT_FALSE(served->shouldRefreshToken());
  EXPECT_EQ(count("refreshes"), 1);
}

TEST_P(RefreshTest, TwoHundredConcurrentRequestsMakeOneRefresh) {
  const auto old = signIn();
  ASSERT_TRUE(old);
  store(due(*old));
  // The answer is held back so that every request has read the due record before it comes.
  counterpart.fault(side(), "token", "delay", R"(,"ms":2000)");
  constexpr int kRequests = 200;
  std::atomic<int> left = kRequests;
  std::vector<qvr::Ref<QVROAuth2Token>> tokens(kRequests);
  std::promise<bool> all;
  std::future<bool> done = all.get_future();
  for (int i = 0; i < kRequests; ++i) {
    manager()->requestAccessTokenForProvider(
        provider(), kUser, [&, i](qvr::Ref<QVROAuth2Token> token, const qvr::ErrorPtr&) {
          tokens[static_cast<std::size_t>(i)] = std::move(token);
          if (--left == 0) all.set_value(true);
        });
  }
  ASSERT_TRUE(await(std::move(done)));
  ASSERT_TRUE(tokens[0]);
  for (const auto& token : tokens)
    EXPECT_EQ(token, tokens[0]);
  EXPECT_NE(tokens[0]->accessToken(), old->accessToken());
  EXPECT_EQ(count("refreshes"), 1);
}

TEST_P(RefreshTest, ACancelledRefreshAnswersItsHandlersAndKeepsTheRecord) {
  const auto old = signIn();
  ASSERT_TRUE(old);
  store(due(*old));
  counterpart.fault(side(), "token", "hang");
  std::promise<qvr::ErrorPtr> promise;
  std::future<qvr::ErrorPtr> future = promise.get_future();
  manager()->requestAccessTokenForProvider(
      provider(), kUser,
      [&promise](const auto&, qvr::ErrorPtr error) { promise.set_value(std::move(error)); });
  ASSERT_TRUE(isCounted("refreshes", 1)) << "the request hangs at the server";
  manager()->cancelRequestForProvider(provider(), kUser);
  const qvr::ErrorPtr error = await(std::move(future));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(qvr::NSURLErrorDomain, qvr::NSURLErrorCancelled)) << error->description();
  EXPECT_EQ(stored().first->refreshToken(), old->refreshToken());
  EXPECT_TRUE(request().first) << "the next request refreshes";
}

TEST_P(RefreshTest, ARevokedGrantIsReportedAsInvalidGrant) {
  const auto token = signIn();
  ASSERT_TRUE(token);
  const auto client = makeClient();
  if (!client->supportsTokenRevocation()) {
    EXPECT_EQ(provider(), QVROAuth2ProviderMicrosoft);
    EXPECT_THROW((void)revoke(*client, token->refreshToken()), qvr::InternalInconsistencyException);
    return;
  }
  const qvr::ErrorPtr error = revoke(*client, token->refreshToken());
  EXPECT_EQ(error, nullptr) << error->description();
  EXPECT_EQ(count("revocations"), 1);
  EXPECT_FALSE(counterpart.isActive(side(), *token->refreshToken()));
  store(due(*token));
  const auto [served, refusal] = request();
  EXPECT_FALSE(served);
  ASSERT_TRUE(refusal);
  EXPECT_TRUE(refusal->is(QVROAuth2ErrorDomain, QVROAuth2ErrorInvalidGrant))
      << refusal->description();
  EXPECT_EQ(QVROAuth2AdviceForError(refusal), QVROAuth2Advice::kSignInAgain);
}

TEST_P(RefreshTest, AccountsOfOneProviderAreKeptApart) {
  const auto alice = signIn("alice@example.com");
  const auto bob = signIn("bob@example.com");
  ASSERT_TRUE(alice && bob);
  EXPECT_EQ(request("alice@example.com").first->accessToken(), alice->accessToken());
  EXPECT_EQ(request("bob@example.com").first->accessToken(), bob->accessToken());
}

TEST_P(RefreshTest, AnAccountThatNeverSignedInHasNothingStored) {
  const auto [served, error] = request("nobody@example.com");
  EXPECT_FALSE(served);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(qvr::NSOSStatusErrorDomain, qvr::errSecItemNotFound));
  EXPECT_EQ(QVROAuth2AdviceForError(error), QVROAuth2Advice::kNothingStored);
}

}  // namespace
}  // namespace e2e
