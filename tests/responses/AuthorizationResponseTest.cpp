// What a recognised redirect says: the code, the state, or an error.

#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace {

using support::described;
using support::entry;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::UserInfo;
using testing::ElementsAre;
using testing::IsEmpty;

class AuthorizationResponseTest : public support::LibraryTest {
 protected:
  AuthorizationResponseTest() { installHost(); }

  struct Reading {
    qvr::Ref<QVROAuth2AuthorizationResponse> response;
    qvr::Text state = "untouched";
    qvr::ErrorPtr error;

    // The code, or what came in its place.
    qvr::Text code() const { return response ? response->code() : qvr::Text("no response"); }
  };

  static qvr::URL redirect(std::string_view query) {
    return qvr::URL::URLWithString("msauth.org.example.mail://auth" + std::string(query)).value();
  }

  static Reading read(std::string_view query) {
    Reading reading;
    reading.response = QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(
        redirect(query), &reading.state, &reading.error);
    return reading;
  }
};

TEST_F(AuthorizationResponseTest, CodeAndStateAreRead) {
  const Reading reading = read("?code=c&state=s");
  EXPECT_EQ(reading.code(), "c");
  EXPECT_EQ(reading.state, "s");
  EXPECT_FALSE(reading.error);
}

TEST_F(AuthorizationResponseTest, TheOrderOfThePairsDoesNotMatter) {
  const Reading reading = read("?state=s&iss=https%3A%2F%2Fx&code=c");
  EXPECT_EQ(reading.code(), "c");
  EXPECT_EQ(reading.state, "s");
}

TEST_F(AuthorizationResponseTest, EscapedPlusIsDecodedAndRawPlusStays) {
  EXPECT_EQ(read("?code=a%2Bb").code(), "a+b");
  EXPECT_EQ(read("?code=a+b").code(), "a+b");
  EXPECT_EQ(read("?code=a%20b").code(), "a b");
}

TEST_F(AuthorizationResponseTest, OfTwoCodesTheSecondCounts) {
  EXPECT_EQ(read("?code=one&code=two").code(), "two");
  EXPECT_EQ(read("?code=one&code=").code(), "");
}

TEST_F(AuthorizationResponseTest, AValueThatDoesNotDecodeOverwritesWithAbsent) {
  EXPECT_EQ(read("?code=one&code=%FF").code(), std::nullopt);
  EXPECT_EQ(read("?code=%FF&code=two").code(), "two");
  EXPECT_EQ(read("?state=s&state=%C0%80").state, std::nullopt);
}

TEST_F(AuthorizationResponseTest, AnErrorThatDoesNotDecodeIsNoError) {
  const Reading reading = read("?code=c&error=access_denied&error=%FF");
  EXPECT_EQ(reading.code(), "c");
  EXPECT_FALSE(reading.error);
}

TEST_F(AuthorizationResponseTest, AValueBeginsAfterTheFirstEqualsSign) {
  EXPECT_EQ(read("?code=a=b==").code(), "a=b==");
  EXPECT_EQ(read("?code==").code(), "=");
}

TEST_F(AuthorizationResponseTest, PiecesWithoutAnEqualsSignAreSkipped) {
  const Reading reading = read("?code&state&&code=c&error");
  EXPECT_EQ(reading.code(), "c");
  EXPECT_EQ(reading.state, std::nullopt);
}

TEST_F(AuthorizationResponseTest, NamesAreDecodedAndComparedExactly) {
  EXPECT_EQ(read("?c%6Fde=c").code(), "c");
  EXPECT_EQ(read("?Code=c").code(), std::nullopt);
  EXPECT_EQ(read("?code%20=c").code(), std::nullopt);
  EXPECT_EQ(read("?code%00=c").code(), std::nullopt);
  EXPECT_EQ(read("?%FFcode=c").code(), std::nullopt);
  EXPECT_EQ(read("?=c").code(), std::nullopt);
}

TEST_F(AuthorizationResponseTest, OnlyAnAmpersandSeparates) {
  EXPECT_EQ(read("?code=a;state=b").code(), "a;state=b");
  EXPECT_EQ(read("?code=a%26state=b").code(), "a&state=b");
  EXPECT_EQ(read("?code=a?state=b").code(), "a?state=b");
}

TEST_F(AuthorizationResponseTest, TheFragmentIsNoPartOfTheQuery) {
  const Reading reading = read("?code=c#state=s");
  EXPECT_EQ(reading.code(), "c");
  EXPECT_EQ(reading.state, std::nullopt);
}

TEST_F(AuthorizationResponseTest, WithoutAQueryTheCodeAndTheStateAreAbsent) {
  for (const char* query : {"", "?", "?&", "#f"}) {
    const Reading reading = read(query);
    ASSERT_TRUE(reading.response) << query;
    EXPECT_EQ(reading.response->code(), std::nullopt) << query;
    EXPECT_EQ(reading.state, std::nullopt) << "an absent state is written: " << query;
    EXPECT_FALSE(reading.error);
  }
}

TEST_F(AuthorizationResponseTest, NeitherCodeNorErrorIsAResponseWithoutACode) {
  const Reading reading = read("?state=s&error_description=x");
  ASSERT_TRUE(reading.response);
  EXPECT_EQ(reading.response->code(), std::nullopt);
  EXPECT_EQ(reading.state, "s");
  EXPECT_FALSE(reading.error);
}

TEST_F(AuthorizationResponseTest, AnEmptyCodeIsPresent) {
  EXPECT_EQ(read("?code=").code(), "");
}

TEST_F(AuthorizationResponseTest, AnErrorWritesTheStateAndYieldsItsCode) {
  const Reading reading = read("?error=access_denied&state=s");
  EXPECT_FALSE(reading.response);
  EXPECT_EQ(reading.state, "s");
  EXPECT_THAT(reading.error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 3));
}

TEST_F(AuthorizationResponseTest, AnErrorWinsOverACode) {
  const Reading reading = read("?code=c&error=server_error");
  EXPECT_FALSE(reading.response);
  EXPECT_THAT(reading.error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 6));
}

TEST_F(AuthorizationResponseTest, EveryWireStringYieldsItsCode) {
  for (std::int64_t code = 1; code <= 18; ++code) {
    const auto string = QVROAuth2ErrorStringFromCode(static_cast<QVROAuth2ErrorCode>(code));
    EXPECT_THAT(read("?error=" + std::string(string.view())).error,
                IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", code));
  }
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(AuthorizationResponseTest, DescriptionAndURIOfAnErrorAreKept) {
  const UserInfo both = {{"NSLocalizedDescription", "no way"},
                         {"QVROAuth2ErrorURI", "https://x/?a=b"}};
  EXPECT_THAT(read("?error=login_required&error_description=no%20way"
                   "&error_uri=https%3A%2F%2Fx%2F%3Fa%3Db")
                  .error,
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 16, both));
  EXPECT_THAT(read("?error=login_required&error_uri=u").error,
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 16, entry("QVROAuth2ErrorURI", "u")));
  EXPECT_THAT(read("?error=login_required&error_description=").error,
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 16, described("")));
}

TEST_F(AuthorizationResponseTest, ADescriptionThatDoesNotDecodeIsLeftOut) {
  EXPECT_THAT(read("?error=invalid_scope&error_description=%FF").error,
              IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 5));
}

TEST_F(AuthorizationResponseTest, AnEmptyErrorIsAnErrorOfCodeZeroThatIsNotLogged) {
  EXPECT_THAT(read("?error=&code=c").error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(AuthorizationResponseTest, AnUnknownErrorHasCodeZeroAndOneLogLine) {
  EXPECT_THAT(read("?error=novel").error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, ElementsAre("error: \"novel\""));
}

TEST_F(AuthorizationResponseTest, WithoutAnErrorOutParameterNothingIsBuiltOrLogged) {
  qvr::Text state;
  EXPECT_FALSE(QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(
      redirect("?error=novel&state=s"), &state));
  EXPECT_EQ(state, "s");
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(AuthorizationResponseTest, TheStateOutParameterMayBeLeftOut) {
  const auto response = QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(
      redirect("?code=c&state=s"), nullptr);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->code(), "c");
}

TEST_F(AuthorizationResponseTest, InitWithCodeStoresACopyAndKeepsAbsentAbsent) {
  std::string code = "code";
  const auto response = QVROAuth2AuthorizationResponse::initWithCode(code);
  code.assign("changed");
  EXPECT_EQ(response->code(), "code");
  EXPECT_EQ(QVROAuth2AuthorizationResponse::initWithCode(nullptr)->code(), std::nullopt);
  EXPECT_EQ(QVROAuth2AuthorizationResponse::initWithCode("")->code(), "");
}

}  // namespace
