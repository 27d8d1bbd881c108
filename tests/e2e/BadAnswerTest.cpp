// A token endpoint that misbehaves, and certificates that do not hold: the error of each, within
// the deadline, and the stored record as it was.

#include "tests/e2e/SignedInTest.h"

namespace e2e {
namespace {

struct BadAnswer {
  std::string name;
  std::string kind;  // of the fault
  std::string members;
  std::string_view domain;
  std::int64_t code;
  QVROAuth2Advice advice;
};

const BadAnswer kBadAnswers[] = {
    {"HTML", "html", "", qvr::NSCocoaErrorDomain, 3840, QVROAuth2Advice::kTryAgainLater},
    {"EmptyBody", "empty", "", qvr::NSCocoaErrorDomain, 3840, QVROAuth2Advice::kTryAgainLater},
    {"TruncatedJSON", "truncated", "", qvr::NSCocoaErrorDomain, 3840,
     QVROAuth2Advice::kTryAgainLater},
    {"TenThousandNestedArrays", "nested", "", qvr::NSCocoaErrorDomain, 3840,
     QVROAuth2Advice::kTryAgainLater},
    {"TwoMebibytes", "huge", "", qvr::NSURLErrorDomain, qvr::NSURLErrorDataLengthExceedsMaximum,
     QVROAuth2Advice::kLasting},
    {"WrongContentType", "status",
     R"(,"status":200,"contentType":"text/plain","body":"{\"error\":\"server_error\"}")",
     QVROAuth2ErrorDomain, QVROAuth2ErrorServerError, QVROAuth2Advice::kTryAgainLater},
    {"RedirectElsewhere", "redirect", "", QVROAuth2HTTPErrorDomain, 302, QVROAuth2Advice::kLasting},
    {"NothingAtAll", "hang", "", qvr::NSURLErrorDomain, qvr::NSURLErrorTimedOut,
     QVROAuth2Advice::kTryAgainLater},
    {"ClosedAtOnce", "close", "", qvr::NSURLErrorDomain, qvr::NSURLErrorNetworkConnectionLost,
     QVROAuth2Advice::kTryAgainLater},
    {"ClosedHalfWay", "close-half", "", qvr::NSURLErrorDomain, qvr::NSURLErrorNetworkConnectionLost,
     QVROAuth2Advice::kTryAgainLater},
    {"ServerError", "status", R"(,"status":503,"body":"later")", QVROAuth2HTTPErrorDomain, 503,
     QVROAuth2Advice::kTryAgainLater},
    {"InvalidGrant", "status", R"(,"status":400,"body":"{\"error\":\"invalid_grant\"}")",
     QVROAuth2ErrorDomain, QVROAuth2ErrorInvalidGrant, QVROAuth2Advice::kSignInAgain},
    {"NoTokenInTheAnswer", "status", R"(,"status":200,"body":"{}")", QVROAuth2ErrorDomain,
     QVROAuth2ErrorUnknown, QVROAuth2Advice::kLasting},
};

// Refreshes once, which is to fail, and checks that the record is as it was and the next one works.
class FailedRefreshTest : public SignedInTest {
 protected:
  void refreshMustFail(std::string_view domain, std::int64_t code, QVROAuth2Advice advice) {
    const auto [served, error] = request();
    EXPECT_FALSE(served);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(domain, code)) << error->description();
    EXPECT_EQ(QVROAuth2AdviceForError(error), advice);
  }

  void recordMustBe(const QVROAuth2Token& token) {
    const auto [kept, error] = stored();
    ASSERT_TRUE(kept) << error->description();
    EXPECT_EQ(kept->accessToken(), token.accessToken());
    EXPECT_EQ(kept->refreshToken(), token.refreshToken());
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, FailedRefreshTest, testing::Values("Google", "Microsoft"),
                         nameOf);

TEST_P(FailedRefreshTest, EveryBadAnswerHasItsErrorAndLeavesTheRecord) {
  const auto token = signIn();
  ASSERT_TRUE(token);
  store(due(*token));
  for (const BadAnswer& answer : kBadAnswers) {
    SCOPED_TRACE(answer.name);
    counterpart.fault(side(), "token", answer.kind, answer.members);
    refreshMustFail(answer.domain, answer.code, answer.advice);
    recordMustBe(*token);
  }
  EXPECT_EQ(count("elsewhere"), 0) << "a redirect was followed";
  EXPECT_TRUE(request().first) << "the next request refreshes";
}

TEST_P(FailedRefreshTest, ACertificateThatDoesNotHoldIsRefused) {
  const auto token = signIn();
  ASSERT_TRUE(token);
  store(due(*token));
  const std::pair<std::string, std::int64_t> certificates[] = {
      {"expired", qvr::NSURLErrorServerCertificateHasBadDate},
      {"selfsigned", qvr::NSURLErrorServerCertificateUntrusted},
      {"otherhost", qvr::NSURLErrorServerCertificateUntrusted}};
  const std::int64_t before = count("refreshes");
  for (const auto& [name, code] : certificates) {
    SCOPED_TRACE(name);
    counterpart.useCertificate(side(), name);
    refreshMustFail(qvr::NSURLErrorDomain, code, QVROAuth2Advice::kLasting);
    recordMustBe(*token);
  }
  EXPECT_EQ(count("refreshes"), before) << "a request reached a server that was not trusted";
  counterpart.useCertificate(side(), "server");
  EXPECT_TRUE(request().first) << "the next request refreshes";
}

}  // namespace
}  // namespace e2e
