// Requests and answers in words: what is named, and what is shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/NarratedConfiguration.h"
#include "host/NarratedText.h"
#include "host/Secrets.h"

namespace host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(NarratedFieldsTest, HarmlessOnesAreShownAndAllOthersByTheirLength) {
  EXPECT_EQ(narratedFields("grant_type=refresh_token&client_id=example-client&client_secret=hush"
                           "&refresh_token=1%2F%2Fabc&unheard_of=value"),
            "grant_type=refresh_token, client_id=example-client, client_secret={length = 4}, "
            "refresh_token={length = 6}, unheard_of={length = 5}");
  EXPECT_EQ(narratedFields("redirect_uri=com.example.mail%3A%2Foauth2&scope=one+two%20three"
                           "&login_hint=user%40example.org&code_challenge_method=S256"
                           "&code_challenge=abcd&state=xyz&code=4%2F0&code_verifier=v&token=t"),
            "redirect_uri=com.example.mail:/oauth2, scope=one two three, "
            "login_hint=user@example.org, code_challenge_method=S256, "
            "code_challenge={length = 4}, state={length = 3}, code={length = 3}, "
            "code_verifier={length = 1}, token={length = 1}");
}

TEST(NarratedFieldsTest, OddOnesShowNothing) {
  EXPECT_EQ(narratedFields(""), "");
  EXPECT_EQ(narratedFields("just-a-token"), "{length = 12}");
  EXPECT_EQ(narratedFields("=value"), "{length = 0}={length = 5}");
  EXPECT_EQ(narratedFields("a b=value"), "{length = 3}={length = 5}");
  EXPECT_EQ(narratedFields("x" + std::string(60, 'y') + "=1"), "{length = 61}={length = 1}");
  EXPECT_EQ(narratedFields("&&a=%"), "{length = 0}, {length = 0}, a={length = 1}");
  EXPECT_EQ(narratedFields("a=%4&b=%4g&c=%zz"), "a={length = 2}, b={length = 3}, c={length = 3}");
}

TEST(NarratedFieldsTest, NameMayBeEncodedAndIsStillASecrets) {
  EXPECT_EQ(narratedFields("refresh%5Ftoken=encoded-name-of-secret"),
            "refresh_token={length = 22}");
  EXPECT_EQ(withoutSecrets("encoded-name-of-secret"), "{length = 22}");
}

TEST(NarratedFieldsTest, SecretIsNotShownUnderAHarmlessNameInWhateverEncoding) {
  EXPECT_EQ(narratedFields("refresh_token=1%2F%2Fsecret%3Dof+field"
                           "&scope=1%2F%2Fsecret%3Dof+field"
                           "&scope=x1%252F%252Fsecret%253Dof%2Bfield"),
            "refresh_token={length = 18}, scope={length = 18}, scope={length = 25}");
}

TEST(NarratedURLTest, IsSchemeHostPathAndFields) {
  const auto narrated = [](const char* url) { return narratedURL(*qvr::URL::URLWithString(url)); };
  EXPECT_EQ(narrated("https://login.test:8443/token"), "https://login.test:8443/token");
  EXPECT_EQ(narrated("https://login.test/auth?response_type=code&state=abc#fragment"),
            "https://login.test/auth?(response_type=code, state={length = 3})");
  EXPECT_EQ(narrated("com.example:/oauth2?code=abc"), "com.example:/oauth2?(code={length = 3})");
}

TEST(NarratedURLTest, ShowsAPathThatHoldsAFieldByItsLength) {
  EXPECT_EQ(narratedURL(*qvr::URL::URLWithString("code=4/abcdefgh")), ":{length = 15}");
}

TEST(NarratedJSONTest, MembersAreNamedAndHarmlessOnesShown) {
  EXPECT_EQ(
      narratedJSON(R"({"access_token":"abc","expires_in":3599,"token_type":"Bearer",)"
                   R"("scope":"a b","refresh_token":null,"x":[1],"y":{"z":1},"n":12,"b":true})"),
      "{access_token: {length = 3}, expires_in: 3599, token_type: Bearer, scope: a b, "
      "refresh_token: null, x: an array, y: an object, n: a number, b: a boolean}");
  EXPECT_EQ(narratedJSON(R"({"error":"invalid_grant","error_description":"Gone.\nReally."})"),
            "{error: invalid_grant, error_description: Gone.?Really.}");
  EXPECT_EQ(narratedJSON(R"({"the secret itself":1})"), "{{length = 17}: a number}");
}

TEST(NarratedJSONTest, WhatIsNoObjectIsNotShown) {
  EXPECT_EQ(narratedJSON(""), "empty");
  EXPECT_EQ(narratedJSON("<html>token</html>"), "not a JSON object");
  EXPECT_EQ(narratedJSON("[\"token\"]"), "not a JSON object");
  EXPECT_EQ(narratedJSON("\"token\""), "not a JSON object");
}

TEST(NarratedJSONTest, EchoOfASecretIsNotShown) {
  EXPECT_EQ(
      narratedJSON(R"({"error_description":"was echoed/token%2B1","refresh_token":)"
                   R"("echoed/token+1","error":"echoed/token+1","scope":"echoed%2Ftoken%2B1"})"),
      "{error_description: {length = 20}, refresh_token: {length = 14}, "
      "error: {length = 14}, scope: {length = 18}}");
}

TEST(NarratedJSONTest, SecretOfARepeatedNameIsNotShownUnderAHarmlessOne) {
  const std::string description = R"("error_description":"was echoed/second")";
  for (const std::string& twice :
       {std::string(R"("access_token":"first","access_token":"echoed/second")"),
        std::string(R"("access_token":"first","access\u005ftoken":"echoed/second")"),
        std::string(R"("error":"\":","token":"first","token":"echoed/second")"),
        std::string(R"("error":[{"code":1,"code":"echoed/second"}])")}) {
    EXPECT_EQ(narratedJSON("{" + twice + "," + description + "}"),
              "a JSON object that repeats a name");
  }
}

TEST(NarratedJSONTest, ColonsAndQuotesInStringsAreNoMembers) {
  EXPECT_EQ(narratedJSON(R"({"error":"a:\":b","x":[{"y":{"z:":1}}]})"),
            "{error: a:\":b, x: an array}");
}

TEST(NarratedJSONTest, OtherEncodingsAreNotShown) {
  EXPECT_EQ(narratedJSON(std::string_view("{\0\"\0a\0\"\0:\0"
                                          "1\0}\0",
                                          14)),
            "not a JSON object");
}

TEST(NarratedValueTest, IsPrintableAndNotTooLong) {
  EXPECT_EQ(narratedValue("a\x1b[0m\nb"), "a?[0m?b");
  const std::string narrated = narratedValue(std::string(1000, 'x'));
  EXPECT_EQ(narrated.size(), 303U);
  EXPECT_THAT(narrated, EndsWith("..."));
}

TEST(NarratedConfigurationTest, SecretIsShownByItsLength) {
  Configuration configuration;
  configuration.path = "/etc/config.toml";
  configuration.bundleIdentifier = "org.example.mail";
  configuration.google = {"example-client", "hush-hush", "com.example.mail"};
  configuration.microsoft.applicationIdentifier = "0123";
  configuration.endpoints = {"a.test", "b.test", "c.test", "/ca.pem"};
  EXPECT_EQ(narratedConfiguration(configuration),
            "configuration: /etc/config.toml for org.example.mail: Google is registered as "
            "example-client (scheme com.example.mail, secret {length = 9}), Microsoft is "
            "registered as 0123; servers a.test, b.test and c.test, trusted by the certificate "
            "authorities in /ca.pem");
  configuration.google = {};
  EXPECT_THAT(narratedConfiguration(configuration), HasSubstr(": Google is not registered, "));
}

}  // namespace
}  // namespace host
