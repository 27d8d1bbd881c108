// Errors built from a JSON error body, and from the parameters of one.

#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace {

using support::bytes;
using support::described;
using support::entry;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::UserInfo;
using testing::ElementsAre;
using testing::IsEmpty;

class ProtocolErrorsTest : public support::LibraryTest {
 protected:
  ProtocolErrorsTest() { installHost(); }
};

qvr::ErrorPtr errorFrom(std::string_view body) {
  return QVROAuth2ErrorFromJSONData(bytes(body));
}

const UserInfo kBoth = {{"NSLocalizedDescription", "expired"}, {"QVROAuth2ErrorURI", "https://x/"}};

TEST_F(ProtocolErrorsTest, ErrorAndDescriptionGiveTheCodeAndOneEntry) {
  EXPECT_THAT(errorFrom(R"({"error":"invalid_grant","error_description":"expired"})"),
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 9, described("expired")));
}

TEST_F(ProtocolErrorsTest, AnEmptyObjectGivesCodeZeroWithoutUserInfoAndWithoutALogLine) {
  EXPECT_THAT(errorFrom("{}"), IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ProtocolErrorsTest, AURIWithoutADescriptionIsTheOnlyEntry) {
  EXPECT_THAT(
      errorFrom(R"({"error":"access_denied","error_uri":"https://x/"})"),
      IsErrorWithUserInfo("QVROAuth2ErrorDomain", 3, entry("QVROAuth2ErrorURI", "https://x/")));
}

TEST_F(ProtocolErrorsTest, DescriptionAndURIAreBothKept) {
  EXPECT_THAT(
      errorFrom(
          R"({"error_uri":"https://x/","error_description":"expired","error":"invalid_scope"})"),
      IsErrorWithUserInfo("QVROAuth2ErrorDomain", 5, kBoth));
}

TEST_F(ProtocolErrorsTest, ADescriptionWithoutAnErrorHasCodeZeroAndIsNotLogged) {
  EXPECT_THAT(errorFrom(R"({"error_description":"expired"})"),
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 0, described("expired")));
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ProtocolErrorsTest, EmptyMembersArePresent) {
  EXPECT_THAT(errorFrom(R"({"error":"","error_description":""})"),
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 0, described("")));
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ProtocolErrorsTest, AJSONNullCountsAsPresentAndIsKeptAsNull) {
  const UserInfo nulls = {{"NSLocalizedDescription", nullptr}, {"QVROAuth2ErrorURI", nullptr}};
  EXPECT_THAT(errorFrom(R"({"error":"server_error","error_description":null,"error_uri":null})"),
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 6, nulls));
}

TEST_F(ProtocolErrorsTest, AnUnknownErrorHasCodeZeroAndOneLogLine) {
  EXPECT_THAT(errorFrom(R"({"error":"slow_down"})"),
              IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, ElementsAre("error: \"slow_down\""));
}

TEST_F(ProtocolErrorsTest, EveryWireStringInABodyGivesItsCode) {
  for (std::int64_t code = 1; code <= 18; ++code) {
    const qvr::TextView string =
        QVROAuth2ErrorStringFromCode(static_cast<QVROAuth2ErrorCode>(code));
    EXPECT_THAT(errorFrom("{\"error\":\"" + std::string(string.view()) + "\"}"),
                IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", code));
  }
}

TEST_F(ProtocolErrorsTest, ABodyThatIsNotJSONGivesTheReadersOwnError) {
  for (const char* body :
       {"<html><body>Sign in to the network</body></html>", "", "{\"error\":", "\"error\"", "12"}) {
    const qvr::ErrorPtr error = errorFrom(body);
    ASSERT_TRUE(error) << body;
    EXPECT_TRUE(error->is("NSCocoaErrorDomain", 3840)) << body << error->description();
    EXPECT_NE(error->userInfoValue("NSDebugDescription"), nullptr) << body;
  }
}

TEST_F(ProtocolErrorsTest, AnErrorThatIsNoStringHasCodeZeroAndIsNotLogged) {
  for (const char* body : {R"({"error":9})", R"({"error":null})", R"({"error":["access_denied"]})",
                           R"({"error":true})"}) {
    EXPECT_THAT(errorFrom(body), IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0)) << body;
  }
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ProtocolErrorsTest, ABodyThatIsAnArrayHasNoMembers) {
  EXPECT_THAT(errorFrom(R"(["invalid_grant"])"), IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
}

TEST_F(ProtocolErrorsTest, MembersInsideMembersDoNotCount) {
  EXPECT_THAT(errorFrom(R"({"inner":{"error":"invalid_grant","error_description":"x"}})"),
              IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
}

TEST_F(ProtocolErrorsTest, ParametersThatAreAllAbsentGiveCodeZeroWithoutUserInfo) {
  EXPECT_THAT(QVROAuth2ErrorFromParameters(nullptr, nullptr, nullptr),
              IsErrorWithoutUserInfo("QVROAuth2ErrorDomain", 0));
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(ProtocolErrorsTest, ParametersGiveTheCodeTheDescriptionAndTheURI) {
  const qvr::Value error("consent_required"), description("expired"), uri("https://x/");
  EXPECT_THAT(QVROAuth2ErrorFromParameters(&error, &description, &uri),
              IsErrorWithUserInfo("QVROAuth2ErrorDomain", 18, kBoth));
}

}  // namespace
