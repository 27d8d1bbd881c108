// Which URLs count as redirects of one of the two providers.

#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace {

using support::entry;
using support::IsErrorWithUserInfo;

class RedirectRecognitionTest : public support::LibraryTest {
 protected:
  static qvr::URL url(std::string_view text) { return qvr::URL::URLWithString(text).value(); }

  // True when the URL is ours. An unrecognised one must say so the one way it may.
  static bool isRecognised(std::string_view text) {
    SCOPED_TRACE(text);
    qvr::Text state = "untouched";
    qvr::ErrorPtr error;
    const auto response = QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(
        url(text), &state, &error);
    if (response) return true;
    EXPECT_THAT(error, IsErrorWithUserInfo("NSURLErrorDomain", -1100,
                                           entry("NSErrorFailingURLKey", url(text))));
    EXPECT_EQ(state, "untouched");
    return false;
  }
};

class InstalledRecognitionTest : public RedirectRecognitionTest {
 protected:
  InstalledRecognitionTest() { installHost(); }
};

TEST_F(InstalledRecognitionTest, SchemeAndHostAreComparedLowerCased) {
  qvr::Text state;
  qvr::ErrorPtr error;
  const auto response = QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(
      url("MSAUTH.ORG.EXAMPLE.MAIL://auth?code=c&state=s"), &state, &error);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->code(), "c");
  EXPECT_EQ(state, "s");
  EXPECT_FALSE(error);
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://AUTH?code=c"));
  EXPECT_TRUE(isRecognised("COM.Example.Mail:/oauth2/auth?code=c"));
}

TEST_F(InstalledRecognitionTest, MicrosoftsPathMayBeEmptyOrASlash) {
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://auth?code=c"));
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://auth/?code=c"));
  EXPECT_FALSE(isRecognised("msauth.org.example.mail://auth/x?code=c"));
  EXPECT_FALSE(isRecognised("msauth.org.example.mail://auth//?code=c"));
}

TEST_F(InstalledRecognitionTest, MicrosoftsHostMustBeThere) {
  EXPECT_FALSE(isRecognised("msauth.org.example.mail:/?code=c"));
  EXPECT_FALSE(isRecognised("msauth.org.example.mail:///?code=c"));
  EXPECT_FALSE(isRecognised("msauth.org.example.mail:auth?code=c"));
  EXPECT_FALSE(isRecognised("msauth.org.example.mail://auth.x?code=c"));
}

TEST_F(InstalledRecognitionTest, GooglesHostMustBeAbsent) {
  EXPECT_TRUE(isRecognised("com.example.mail:/oauth2/auth?code=c"));
  EXPECT_TRUE(isRecognised("com.example.mail:///oauth2/auth?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail://h/oauth2/auth?code=c"));
}

TEST_F(InstalledRecognitionTest, APathWithATrailingSlashIsAnotherPath) {
  EXPECT_FALSE(isRecognised("com.example.mail:/oauth2/auth/?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail:/oauth2?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail:/?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail:?code=c"));
}

TEST_F(InstalledRecognitionTest, ThePathIsComparedDecodedAndItsCaseMatters) {
  EXPECT_TRUE(isRecognised("com.example.mail:/oauth2/%61uth?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail:/OAUTH2/auth?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail:/oauth2/auth%FF?code=c"));
}

TEST_F(InstalledRecognitionTest, ThePortAndTheFragmentDoNotMatter) {
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://auth:8080?code=c"));
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://auth?code=c#_=_"));
}

TEST_F(InstalledRecognitionTest, OtherSchemesAreNotRecognised) {
  for (const char* text : {"other.app://auth?code=c", "https://auth/?code=c", "msauth.://auth",
                           "msauth.org.example.mailx://auth", "//auth?code=c", "auth?code=c", "",
                           ":/oauth2/auth?code=c", "://auth?code=c"}) {
    EXPECT_FALSE(isRecognised(text)) << text;
  }
}

TEST_F(InstalledRecognitionTest, AnUnrecognisedURLMayLackOutParameters) {
  const qvr::URL other = url("other.app://auth?code=c&state=s");
  qvr::Text state = "untouched";
  EXPECT_FALSE(QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(other, &state));
  EXPECT_EQ(state, "untouched");
  EXPECT_FALSE(
      QVROAuth2AuthorizationResponse::authorizationResponseWithRedirectURL(other, nullptr));
}

TEST_F(RedirectRecognitionTest, WithAnEmptySchemeNothingIsRecognisedAsGoogles) {
  host.setGoogleRegistration("", "", "");
  installHost();
  EXPECT_FALSE(isRecognised(":/oauth2/auth?code=c"));
  EXPECT_FALSE(isRecognised("/oauth2/auth?code=c"));
  EXPECT_FALSE(isRecognised("com.example.mail:/oauth2/auth?code=c"));
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://auth?code=c"));
}

TEST_F(RedirectRecognitionTest, AMatchingFirstSchemeDoesNotFallThroughToTheSecond) {
  host.setGoogleRegistration("id", "", "msauth.org.example.mail");
  installHost();
  EXPECT_TRUE(isRecognised("msauth.org.example.mail:/oauth2/auth?code=c"));
  EXPECT_FALSE(isRecognised("msauth.org.example.mail://auth?code=c"));
}

TEST_F(RedirectRecognitionTest, TheRegisteredSchemesAreLowerCasedToo) {
  host.setGoogleRegistration("id", "", "Com.Example.MAIL");
  host.setBundleIdentifier("Org.Example.Mail");
  installHost();
  EXPECT_TRUE(isRecognised("com.example.mail:/oauth2/auth?code=c"));
  EXPECT_TRUE(isRecognised("msauth.org.example.mail://auth?code=c"));
}

}  // namespace
