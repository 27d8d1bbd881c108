// Whom an ID token names, and what the user hears of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"
#include "host/IdentityToken.h"
#include "host/Secrets.h"
#include "tests/host/SignInFixture.h"

namespace host {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

qvr::Data bytesOf(std::string_view text) {
  return qvr::Data(text.begin(), text.end());
}

std::string tokenWith(std::string_view payload) {
  return "eyJhbGciOiJub25lIn0." + qvr_base64URLEncodedStringNoPadding(bytesOf(payload)) + ".c2ln";
}

TEST(IdentityToken, NamesTheAccountByItsThreeNames) {
  EXPECT_THAT(accountNamesInIDToken(tokenWith(R"({"sub": "1", "email": "a@example.org"})")),
              ElementsAre("a@example.org"));
  EXPECT_THAT(accountNamesInIDToken(
                  tokenWith(R"({"upn": "u@x", "preferred_username": "p@x", "email": "\u00e9@x"})")),
              ElementsAre("\xC3\xA9@x", "p@x", "u@x"));
  EXPECT_THAT(accountNamesInIDToken(tokenWith(R"({"email": null, "upn": "u@x"})")),
              ElementsAre("u@x"));
}

TEST(IdentityToken, MalformedOnesNameNobody) {
  const std::string good = tokenWith(R"({"email": "a@x"})");
  const std::string payload = good.substr(good.find('.') + 1);
  const std::string tokens[] = {
      "",
      ".",
      "..",
      "a.b",
      "a." + payload + ".c",    // four parts
      "a.b." + payload + ".d",  // five, as an encrypted one has
      "a.!!!.c",                // no base64url
      "a.e30.c",                // {}
      tokenWith("[]"),
      tokenWith("\"email\""),
      tokenWith(R"({"email": "a@x")"),
      tokenWith("{\"email\": \"\xFF\"}"),
      tokenWith(R"({"email": ["a@x"]})"),
      tokenWith(R"({"email": 1, "upn": true})"),
      tokenWith(R"({"email": ""})"),
      tokenWith(R"({"email": ")" + std::string(321, 'x') + R"("})"),
      tokenWith(std::string(100'000, '[')),
  };
  for (const std::string& token : tokens)
    EXPECT_THAT(accountNamesInIDToken(token), IsEmpty()) << token.substr(0, 100);
}

TEST(IdentityToken, IsFoundInAnAnswerAndKeptSecret) {
  const std::string token = tokenWith(R"({"email": "secret-of-this-test@example.org"})");
  EXPECT_EQ(idTokenInAnswer(bytesOf(R"({"id_token": ")" + token + "\"}")), token);
  EXPECT_THAT(withoutSecrets("it is " + token), Not(HasSubstr(token)));
  for (const char* const body : {"", "{}", "[]", "<html>", R"({"id_token": 5})",
                                 R"({"id_token": ""})", R"({"id_token": {"id_token": "a"}})"})
    EXPECT_FALSE(idTokenInAnswer(bytesOf(body))) << body;
}

TEST(IdentityToken, IssuerAndSubjectTellAccountsApart) {
  const auto subjectOf = [](const std::string& issuer, const std::string& subject) {
    return subjectInIDToken(
        tokenWith(R"({"iss": ")" + issuer + R"(", "sub": ")" + subject + R"(", "iat": 1})"));
  };
  const auto alice = subjectOf("https://a.example", "1");
  ASSERT_TRUE(alice);
  EXPECT_EQ(subjectInIDToken(tokenWith(
                R"({"email": "other@x", "sub": "1", "exp": 9, "iss": "https://a.example"})")),
            alice)
      << "what else is in the token makes no difference";
  EXPECT_NE(subjectOf("https://a.example", "2"), alice);
  EXPECT_NE(subjectOf("https://b.example", "1"), alice);
  EXPECT_NE(subjectOf("https://a.example", "1 "), alice);
  EXPECT_NE(subjectOf("a b", "c"), subjectOf("a", "b c"));
}

TEST(IdentityToken, HasNoSubjectWithoutBothMembersAsTexts) {
  const std::string good = tokenWith(R"({"iss": "i", "sub": "s"})");
  ASSERT_TRUE(subjectInIDToken(good));
  const std::string tokens[] = {
      "",
      good.substr(0, good.rfind('.')),  // two parts
      good + ".d.e",                    // five, as an encrypted one has
      "a.!!!.c",                        // no base64url
      tokenWith(R"({"iss": "i"})"),
      tokenWith(R"({"sub": "s"})"),
      tokenWith(R"({"iss": "", "sub": "s"})"),
      tokenWith(R"({"iss": "i", "sub": ""})"),
      tokenWith(R"({"iss": "i", "sub": 5})"),
      tokenWith(R"({"iss": ["i"], "sub": "s"})"),
      tokenWith(R"({"iss": null, "sub": "s"})"),
      tokenWith(R"({"iss": "i", "sub": "s\u0000t"})"),
      tokenWith(R"(["iss", "sub"])"),
      tokenWith(R"({"iss": "i", "sub": "s")"),
  };
  for (const std::string& token : tokens)
    EXPECT_FALSE(subjectInIDToken(token)) << token;
}

TEST(AccountWarning, IsSilentWhenOneOfTheNamesIsTheAccounts) {
  const Account account = {"Google", "Alice@Example.com"};
  EXPECT_FALSE(warningAboutAccount({}, account));
  EXPECT_FALSE(warningAboutAccount({"alice@example.COM"}, account));
  EXPECT_FALSE(warningAboutAccount({"other@example.com", "alice@example.com"}, account));
}

TEST(AccountWarning, NamesBothAccountsAndHowToMendIt) {
  const auto google = warningAboutAccount({"bob@example.com"}, {"Google", "alice o'hara@x"});
  ASSERT_TRUE(google);
  EXPECT_THAT(*google, AllOf(HasSubstr("signed in bob@example.com, but alice o'hara@x was asked"),
                             HasSubstr("Mail servers refuse"),
                             HasSubstr("`qvr-oauth2 sign-out --local Google 'alice o'\\''hara@x'`"),
                             HasSubstr("`qvr-oauth2 sign-in Google 'alice o'\\''hara@x'`")));
  const auto microsoft = warningAboutAccount({"bob@example.com"}, {"Microsoft", "a@x"});
  ASSERT_TRUE(microsoft);
  EXPECT_THAT(*microsoft, HasSubstr("`qvr-oauth2 sign-in --prompt select_account Microsoft a@x`"));
}

TEST(AccountWarning, ComparesAsciiLettersOnly) {
  EXPECT_TRUE(warningAboutAccount({"\xC3\x89@x"}, {"Google", "\xC3\xA9@x"}));
  EXPECT_TRUE(warningAboutAccount({"a@x"}, {"Google", "a@xy"}));
}

class SignedInAccountTest : public SignInTest {
 protected:
  SignedInAccountTest() { acceptInTheBrowser(); }

  // The provider's next answer; `idToken` is a JSON value.
  void answerWithIDToken(const std::string& idToken) {
    answerWith(200, R"({"access_token": "the-access-token", "token_type": "Bearer",
                        "refresh_token": "the-refresh-token", "id_token": )" +
                        idToken + "}");
  }
  static std::string quoted(const std::string& text) { return "\"" + text + "\""; }
};

TEST_F(SignedInAccountTest, AnotherAccountThanTheOneAskedForIsStoredWithAWarning) {
  const std::string token = tokenWith(R"({"email": "bob@example.com"})");
  answerWithIDToken(quoted(token));
  EXPECT_EQ(run(), kDone);
  EXPECT_TRUE(storedRecord());
  EXPECT_THAT(error, AllOf(HasSubstr("signed in bob@example.com, but user@example.org"),
                           HasSubstr("--prompt select_account"), Not(HasSubstr(token))));
}

TEST_F(SignedInAccountTest, TheAccountAskedForIsNotCommentedOn) {
  answerWithIDToken(quoted(tokenWith(R"({"preferred_username": "USER@example.org"})")));
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, Not(HasSubstr("Warning")));
}

TEST_F(SignedInAccountTest, ControlCharactersOfANameDoNotReachTheTerminal) {
  answerWithIDToken(quoted(tokenWith(R"({"email": "b\u001b[2Jb\n@x"})")));
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, AllOf(HasSubstr("b?[2Jb?@x"), Not(HasSubstr("\x1b"))));
}

TEST_F(SignedInAccountTest, MalformedTokensAreIgnored) {
  for (const std::string value : {"null", "5", "{}", "\"\"", "\"a.b.c\"", "\"x\""}) {
    answerWithIDToken(value);
    EXPECT_EQ(run(), kDone) << value;
    EXPECT_THAT(error, Not(HasSubstr("Warning"))) << value;
  }
}

TEST_F(SignedInAccountTest, NameOfOneAnswerDoesNotComeBackWithTheNext) {
  answerWithIDToken(quoted(tokenWith(R"({"email": "bob@example.com"})")));
  ASSERT_EQ(run(), kDone);
  answerWithAToken();
  ASSERT_EQ(run(), kDone);
  EXPECT_THAT(error, Not(HasSubstr("Warning")));
}

}  // namespace
}  // namespace host
