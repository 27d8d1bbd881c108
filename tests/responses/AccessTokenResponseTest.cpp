// The body of the token endpoint: a success, or an error.

#include <thread>

#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace {

using support::bytes;
using support::described;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::UserInfo;
using testing::ElementsAre;
using testing::IsEmpty;

class AccessTokenResponseTest : public support::LibraryTest {
 protected:
  AccessTokenResponseTest() { installHost(); }

  struct Reading {
    qvr::Ref<QVROAuth2AccessTokenResponse> response;
    qvr::ErrorPtr error;
  };

  static Reading read(std::string_view body) {
    Reading reading;
    reading.response = QVROAuth2AccessTokenResponse::accessTokenResponseWithData(
        bytes(body), nullptr, &reading.error);
    return reading;
  }

  static void expectAllAbsent(const QVROAuth2AccessTokenResponse& response) {
    EXPECT_TRUE(response.accessToken().isNull());
    EXPECT_TRUE(response.tokenType().isNull());
    EXPECT_TRUE(response.expiresIn().isNull());
    EXPECT_TRUE(response.refreshToken().isNull());
    EXPECT_TRUE(response.scope().isNull());
  }
};

TEST_F(AccessTokenResponseTest, AllFiveMembersAreRead) {
  const Reading reading = read(R"({"scope":"mail openid","refresh_token":"rt","expires_in":3600,
                                   "token_type":"Bearer","access_token":"at"})");
  ASSERT_TRUE(reading.response);
  EXPECT_FALSE(reading.error);
  EXPECT_EQ(reading.response->accessToken(), "at");
  EXPECT_EQ(reading.response->tokenType(), "Bearer");
  EXPECT_EQ(reading.response->expiresIn(), std::int64_t{3600});
  EXPECT_EQ(reading.response->refreshToken(), "rt");
  EXPECT_EQ(reading.response->scope(), "mail openid");
}

TEST_F(AccessTokenResponseTest, MembersThatAreNotThereAreAbsent) {
  const Reading reading = read(R"({"access_token":"at","token_type":"Bearer","expires_in":3600})");
  ASSERT_TRUE(reading.response);
  EXPECT_EQ(reading.response->accessToken(), "at");
  EXPECT_EQ(reading.response->tokenType(), "Bearer");
  EXPECT_EQ(reading.response->expiresIn().numberValue(), 3600);
  EXPECT_TRUE(reading.response->refreshToken().isNull());
  EXPECT_TRUE(reading.response->scope().isNull());
}

TEST_F(AccessTokenResponseTest, AJSONNullIsAbsent) {
  const Reading reading = read(R"({"access_token":null,"token_type":null,"expires_in":null,
                                   "refresh_token":null,"scope":null,"error":null})");
  ASSERT_TRUE(reading.response);
  EXPECT_FALSE(reading.error);
  EXPECT_EQ(reading.response->accessToken().text(), std::nullopt);
  expectAllAbsent(*reading.response);
}

TEST_F(AccessTokenResponseTest, AnEmptyObjectHasNoMembersAndNoError) {
  const Reading reading = read("{}");
  ASSERT_TRUE(reading.response);
  EXPECT_FALSE(reading.error);
  expectAllAbsent(*reading.response);
}

TEST_F(AccessTokenResponseTest, ABodyThatIsAnArrayHasNoMembers) {
  const Reading reading = read(R"(["access_token","at"])");
  ASSERT_TRUE(reading.response);
  expectAllAbsent(*reading.response);
}

TEST_F(AccessTokenResponseTest, AnErrorWinsOverAnAccessToken) {
  const Reading reading = read(R"({"access_token":"at","error":"invalid_grant"})");
  EXPECT_FALSE(reading.response);
  EXPECT_THAT(reading.error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 9));
}

TEST_F(AccessTokenResponseTest, DescriptionAndURIOfAnErrorAreKept) {
  const UserInfo both = {{"NSLocalizedDescription", "gone"}, {"QVROAuth2ErrorURI", "https://x/"}};
  EXPECT_THAT(read(R"({"error_uri":"https://x/","error_description":"gone",
                       "error":"interaction_required"})")
                  .error,
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 17, both));
  EXPECT_THAT(read(R"({"error":"invalid_client","error_description":"gone"})").error,
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 8, described("gone")));
}

TEST_F(AccessTokenResponseTest, NullDescriptionAndURIAreAbsent) {
  EXPECT_THAT(read(R"({"error":"invalid_client","error_description":null,"error_uri":null})").error,
              IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 8));
}

TEST_F(AccessTokenResponseTest, EveryWireStringYieldsItsCode) {
  for (std::int64_t code = 1; code <= 18; ++code) {
    const auto string = QVROAuth2ErrorStringFromCode(static_cast<QVROAuth2ErrorCode>(code));
    EXPECT_THAT(read("{\"error\":\"" + std::string(string.view()) + "\"}").error,
                IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", code));
  }
}

TEST_F(AccessTokenResponseTest, AnUnknownErrorHasCodeZeroAndOneLogLine) {
  const Reading reading = read(R"({"error":"novel"})");
  EXPECT_FALSE(reading.response);
  EXPECT_THAT(reading.error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, ElementsAre("error: \"novel\""));
}

TEST_F(AccessTokenResponseTest, WithoutAnOutParameterAnErrorIsNeitherBuiltNorLogged) {
  EXPECT_FALSE(QVROAuth2AccessTokenResponse::accessTokenResponseWithData(
      bytes(R"({"error":"novel"})"), nullptr));
  EXPECT_FALSE(QVROAuth2AccessTokenResponse::accessTokenResponseWithData(bytes("<html>"), nullptr));
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(AccessTokenResponseTest, AnErrorOfAnotherTypeOrEmptyIsAnErrorAndNotLogged) {
  for (const char* body :
       {R"({"error":""})", R"({"error":5})", R"({"error":false})", R"({"error":{"code":"x"}})"}) {
    const Reading reading = read(body);
    EXPECT_FALSE(reading.response) << body;
    EXPECT_THAT(reading.error, IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0)) << body;
  }
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(AccessTokenResponseTest, ADescriptionWithoutAnErrorIsNoError) {
  EXPECT_TRUE(read(R"({"error_description":"x","error_uri":"y"})").response);
}

TEST_F(AccessTokenResponseTest, ABodyThatIsNotJSONGivesTheReadersError) {
  for (const char* body : {"<html></html>", "", "{", "\"at\"", "{\"access_token\":\"at\"} x"}) {
    const Reading reading = read(body);
    EXPECT_FALSE(reading.response) << body;
    ASSERT_TRUE(reading.error) << body;
    EXPECT_TRUE(reading.error->is("NSCocoaErrorDomain", 3840)) << body;
    EXPECT_NE(reading.error->userInfoValue("NSJSONSerializationErrorIndex"), nullptr) << body;
  }
}

TEST_F(AccessTokenResponseTest, TenThousandNestedArraysGiveTheReadersError) {
  const Reading reading = read(std::string(10000, '[') + std::string(10000, ']'));
  EXPECT_FALSE(reading.response);
  ASSERT_TRUE(reading.error);
  EXPECT_TRUE(reading.error->is("NSCocoaErrorDomain", 3840));
}

TEST_F(AccessTokenResponseTest, ExpiresInIsKeptAsItWasSent) {
  const std::pair<const char*, qvr::Value> cases[] = {
      {"3600", std::int64_t{3600}},
      {"\"3600\"", "3600"},
      {"-1", std::int64_t{-1}},
      {"59.5", 59.5},
      {"1e3", 1000.0},
      {"true", true},
      {"\"soon\"", "soon"},
      {"0", std::int64_t{0}},
  };
  for (const auto& [sent, kept] : cases) {
    const Reading reading = read("{\"expires_in\":" + std::string(sent) + "}");
    ASSERT_TRUE(reading.response) << sent;
    EXPECT_EQ(reading.response->expiresIn(), kept) << sent;
  }
}

TEST_F(AccessTokenResponseTest, ExpiresInAsAStringStaysThatString) {
  const Reading reading = read(R"({"expires_in":"3600"})");
  ASSERT_TRUE(reading.response);
  EXPECT_EQ(reading.response->expiresIn().text(), "3600");
  EXPECT_EQ(reading.response->expiresIn().numberValue(), 3600);
}

TEST_F(AccessTokenResponseTest, MembersOfAnotherTypeAreKeptUnconverted) {
  const Reading reading = read(R"({"access_token":5,"token_type":["Bearer"],"scope":{"a":1}})");
  ASSERT_TRUE(reading.response);
  EXPECT_EQ(reading.response->accessToken(), std::int64_t{5});
  EXPECT_EQ(reading.response->accessToken().text(), std::nullopt);
  EXPECT_EQ(reading.response->tokenType(), qvr::Value::Array{"Bearer"});
  EXPECT_EQ(reading.response->scope(), (qvr::Value::Object{{"a", std::int64_t{1}}}));
}

TEST_F(AccessTokenResponseTest, EmptyStringsArePresent) {
  const Reading reading = read(R"({"access_token":"","scope":""})");
  ASSERT_TRUE(reading.response);
  EXPECT_EQ(reading.response->accessToken(), "");
  EXPECT_EQ(reading.response->scope(), "");
}

TEST_F(AccessTokenResponseTest, KeysAreComparedExactly) {
  const Reading reading =
      read(R"({"Access_Token":"a","access_token ":"b","ERROR":"c","inner":{"access_token":"d"}})");
  ASSERT_TRUE(reading.response);
  expectAllAbsent(*reading.response);
}

TEST_F(AccessTokenResponseTest, OfTwoEqualKeysTheFirstCounts) {
  const Reading reading = read(R"({"access_token":"one","access_token":"two"})");
  ASSERT_TRUE(reading.response);
  EXPECT_EQ(reading.response->accessToken(), "one");
}

TEST_F(AccessTokenResponseTest, TheURLResponseIsNotConsulted) {
  qvr::HTTPURLResponse answer;
  answer.statusCode = 500;
  answer.headers = {{"Content-Type", "text/html"}};
  qvr::ErrorPtr error;
  EXPECT_TRUE(QVROAuth2AccessTokenResponse::accessTokenResponseWithData(
      bytes(R"({"access_token":"at"})"), &answer, &error));
  EXPECT_FALSE(error);
}

TEST_F(AccessTokenResponseTest, TheInitializerKeepsItsFiveValuesInOrder) {
  std::string accessToken = "at";
  const auto response = QVROAuth2AccessTokenResponse::initWithAccessToken(accessToken, "Bearer",
                                                                          3600.0, "rt", "mail");
  accessToken.assign("changed");
  EXPECT_EQ(response->accessToken(), "at");
  EXPECT_EQ(response->tokenType(), "Bearer");
  EXPECT_EQ(response->expiresIn(), 3600.0);
  EXPECT_EQ(response->refreshToken(), "rt");
  EXPECT_EQ(response->scope(), "mail");
  expectAllAbsent(*QVROAuth2AccessTokenResponse::initWithAccessToken(nullptr, nullptr, nullptr,
                                                                     nullptr, nullptr));
}

TEST_F(AccessTokenResponseTest, AResponseMayBeSharedBetweenThreads) {
  const Reading reading = read(R"({"access_token":"at"})");
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&wrong, shared = reading.response] {
      for (int j = 0; j < 100; ++j) {
        if (shared->accessToken() != "at" || !read(R"({"a":1})").response) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
