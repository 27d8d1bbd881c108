// The error vocabulary: constants, codes, and the wire strings that stand for them.

#include <thread>
#include <type_traits>

#include "tests/support/LibraryTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct WireString {
  std::int64_t value;
  QVROAuth2ErrorCode code;
  const char* string;
};

constexpr WireString kWireStrings[] = {
    {1, QVROAuth2ErrorInvalidRequest, "invalid_request"},
    {2, QVROAuth2ErrorUnauthorizedClient, "unauthorized_client"},
    {3, QVROAuth2ErrorAccessDenied, "access_denied"},
    {4, QVROAuth2ErrorUnsupportedResponseType, "unsupported_response_type"},
    {5, QVROAuth2ErrorInvalidScope, "invalid_scope"},
    {6, QVROAuth2ErrorServerError, "server_error"},
    {7, QVROAuth2ErrorTemporarilyUnavailable, "temporarily_unavailable"},
    {8, QVROAuth2ErrorInvalidClient, "invalid_client"},
    {9, QVROAuth2ErrorInvalidGrant, "invalid_grant"},
    {10, QVROAuth2ErrorUnsupportedGrantType, "unsupported_grant_type"},
    {11, QVROAuth2ErrorAdminPolicyEnforced, "admin_policy_enforced"},
    {12, QVROAuth2ErrorDisallowedUserAgent, "disallowed_useragent"},
    {13, QVROAuth2ErrorOrgInternal, "org_internal"},
    {14, QVROAuth2ErrorRedirectURIMismatch, "redirect_uri_mismatch"},
    {15, QVROAuth2ErrorInvalidResource, "invalid_resource"},
    {16, QVROAuth2ErrorLoginRequired, "login_required"},
    {17, QVROAuth2ErrorInteractionRequired, "interaction_required"},
    {18, QVROAuth2ErrorConsentRequired, "consent_required"},
};

class ErrorCodesTest : public support::LibraryTest {
 protected:
  ErrorCodesTest() { installHost(); }
};

TEST(ErrorConstantsTest, DomainsAndKeysHaveTheirPublishedValues) {
  EXPECT_EQ(QVROAuth2ErrorDomain, "QVROAuth2ErrorDomain");
  EXPECT_EQ(QVROAuth2HTTPErrorDomain, "QVROAuth2HTTPErrorDomain");
}

TEST(ErrorConstantsTest, KeysEndWithoutTheLastWordOfTheirName) {
  EXPECT_EQ(QVROAuth2ErrorURIKey, "QVROAuth2ErrorURI");
  EXPECT_EQ(QVROAuth2HTTPResponseDataKey, "QVROAuth2HTTPResponseData");
}

TEST(ErrorConstantsTest, CodesAreSignedAndSixtyFourBitsWide) {
  static_assert(std::is_same_v<std::underlying_type_t<QVROAuth2ErrorCode>, std::int64_t>);
  EXPECT_EQ(QVROAuth2ErrorUnknown, 0);
  for (const WireString& expected : kWireStrings)
    EXPECT_EQ(expected.code, expected.value) << expected.string;
}

TEST_F(ErrorCodesTest, EveryWireStringHasItsCodeAndIsNotLogged) {
  for (const WireString& expected : kWireStrings) {
    EXPECT_EQ(QVROAuth2ErrorCodeFromString(expected.string), expected.code) << expected.string;
  }
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ErrorCodesTest, EveryCodeHasItsWireString) {
  for (const WireString& expected : kWireStrings) {
    EXPECT_EQ(QVROAuth2ErrorStringFromCode(expected.code).view(), expected.string);
  }
}

TEST_F(ErrorCodesTest, EveryCodeConvertsToItsStringAndBack) {
  for (std::int64_t value = 1; value <= 18; ++value) {
    const auto code = static_cast<QVROAuth2ErrorCode>(value);
    EXPECT_EQ(QVROAuth2ErrorCodeFromString(QVROAuth2ErrorStringFromCode(code)), code);
  }
}

TEST_F(ErrorCodesTest, OtherCodesHaveNoString) {
  for (const std::int64_t value :
       {std::int64_t{0}, std::int64_t{19}, std::int64_t{-1}, INT64_MAX, INT64_MIN}) {
    const auto code = static_cast<QVROAuth2ErrorCode>(value);
    EXPECT_FALSE(QVROAuth2ErrorStringFromCode(code).has_value()) << value;
  }
}

TEST_F(ErrorCodesTest, TheWireStringIsTheConstantItselfAndNoCopy) {
  EXPECT_EQ(QVROAuth2ErrorStringFromCode(QVROAuth2ErrorInvalidGrant).view().data(),
            QVROAuth2ErrorStringFromCode(QVROAuth2ErrorInvalidGrant).view().data());
}

TEST_F(ErrorCodesTest, AnAbsentStringIsUnknownAndNotLogged) {
  EXPECT_EQ(QVROAuth2ErrorCodeFromString(nullptr), QVROAuth2ErrorUnknown);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ErrorCodesTest, AnEmptyStringIsUnknownAndNotLogged) {
  EXPECT_EQ(QVROAuth2ErrorCodeFromString(""), QVROAuth2ErrorUnknown);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ErrorCodesTest, AnUnknownStringIsLoggedBetweenQuotes) {
  EXPECT_EQ(QVROAuth2ErrorCodeFromString("slow_down"), QVROAuth2ErrorUnknown);
  EXPECT_THAT(*log, ElementsAre("error: \"slow_down\""));
}

TEST_F(ErrorCodesTest, WireStringsAreComparedExactly) {
  for (const char* string : {"INVALID_GRANT", "Invalid_grant", " invalid_grant", "invalid_grant ",
                             "invalid-grant", "invalid_gran"}) {
    log->clear();
    EXPECT_EQ(QVROAuth2ErrorCodeFromString(string), QVROAuth2ErrorUnknown) << string;
    EXPECT_THAT(*log, ElementsAre("error: \"" + std::string(string) + "\""));
  }
}

TEST_F(ErrorCodesTest, ConversionsMayRunOnManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&wrong] {
      for (const WireString& expected : kWireStrings) {
        if (QVROAuth2ErrorCodeFromString(expected.string) != expected.code) ++wrong;
        if (QVROAuth2ErrorStringFromCode(expected.code).view() != expected.string) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
