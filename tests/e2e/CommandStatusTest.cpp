// qvr-oauth2 status, accounts and token in their forms for programs, compared with what the
// authorization server says.

#include <ctime>
#include <iterator>
#include <set>
#include <sstream>

#include "QVROAuth2Client/platform/JSON.h"
#include "tests/e2e/CommandTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kTokenSeconds = 3600;
// What a slow machine takes between two questions, which the clock goes on in.
constexpr double kToleranceSeconds = 60;

class CommandStatusTest : public CommandTest {
 protected:
  qvr::Value json(const std::vector<std::string>& arguments, int status = 0) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, status) << result.error;
    const qvr::Data text(result.output.begin(), result.output.end());
    const auto value = qvr::JSONObjectWithData(text, nullptr);
    EXPECT_TRUE(value) << "not JSON";
    return value.value_or(qvr::Value());
  }

  static qvr::Value member(const qvr::Value& value, const std::string& name) {
    const qvr::Value* const found = value.find(name);
    EXPECT_NE(found, nullptr) << name;
    return found == nullptr ? qvr::Value() : *found;
  }

  // What the server knows of a token.
  qvr::Value introspected(const std::string& token) {
    return counterpart.post("/introspect",
                            R"({"provider":")" + side() + R"(","token":")" + token + R"("})");
  }

  std::string token() {
    const Result result = run({"token", provider(), kUser});
    EXPECT_EQ(result.status, 0) << result.error;
    return result.output.substr(0, result.output.find('\n'));
  }

  // The members that say when a token expires, against the seconds that the server gives it.
  static void expectExpiry(const qvr::Value& value, double seconds) {
    EXPECT_NEAR(member(value, "expires_in").numberValue().value_or(0), seconds, kToleranceSeconds);
    const std::string text = member(value, "expires_at").text().value_or("");
    std::tm parts{};
    const char* const end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    ASSERT_TRUE(end != nullptr && *end == '\0') << text;
    EXPECT_NEAR(static_cast<double>(timegm(&parts)),
                static_cast<double>(std::time(nullptr)) + seconds, kToleranceSeconds);
  }

  // The scopes of an array, as the server writes them.
  static std::set<std::string> scopesOf(const qvr::Value& value) {
    std::set<std::string> scopes;
    const qvr::Value array = member(value, "scopes");
    const auto* const values = array.as<qvr::Value::Array>();
    EXPECT_NE(values, nullptr);
    for (const qvr::Value& each : values == nullptr ? qvr::Value::Array() : *values)
      scopes.insert(each.text().value_or(""));
    return scopes;
  }

  static std::set<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandStatusTest, testing::Values("Google", "Microsoft"));

TEST_P(CommandStatusTest, TheTokenAsJSONIsWhatTheServerKnows) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const qvr::Value value = json({"token", provider(), kUser, "--format", "json"});
  EXPECT_EQ(member(value, "provider").text(), provider());
  EXPECT_EQ(member(value, "user").text(), kUser);
  EXPECT_EQ(member(value, "token_type").text(), "Bearer");
  const std::string accessToken = member(value, "access_token").text().value_or("");
  EXPECT_EQ(accessToken, token()) << "the same as without a format";
  const qvr::Value known = introspected(accessToken);
  EXPECT_EQ(member(known, "active"), qvr::Value(true));
  EXPECT_EQ(member(known, "sub").text(), kUser);
  expectExpiry(value, member(known, "expiresIn").numberValue().value_or(0));
  EXPECT_EQ(scopesOf(value), words(member(known, "scope").text().value_or("")));
}

TEST_P(CommandStatusTest, TheStatusAsJSONIsWhatTheServerKnows) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const qvr::Value value = json({"status", provider(), kUser, "--json"});
  EXPECT_EQ(member(value, "provider").text(), provider());
  EXPECT_EQ(member(value, "user").text(), kUser);
  EXPECT_EQ(member(value, "keychain").text(), "encrypted-file");
  EXPECT_EQ(member(value, "token_type").text(), "Bearer");
  EXPECT_EQ(member(value, "refresh_due"), qvr::Value(false));
  EXPECT_EQ(member(value, "refresh_token_stored"), qvr::Value(true));
  const qvr::Value known = introspected(token());
  expectExpiry(value, member(known, "expiresIn").numberValue().value_or(0));
  EXPECT_EQ(scopesOf(value), words(member(known, "scope").text().value_or("")));
}

TEST_P(CommandStatusTest, TheStatusShowsNoTokenAndAsksNoServer) {
  counterpart.setAccessTokenSeconds(side(), 60);
  ASSERT_NO_FATAL_FAILURE(signIn());
  counterpart.setAccessTokenSeconds(side(), kTokenSeconds);
  const Result text = run({"status", provider(), kUser});
  const Result asJSON = run({"status", provider(), kUser, "--json"});
  EXPECT_EQ(text.status, 0) << "the next token command can refresh it: " << text.error;
  EXPECT_THAT(text.output, HasSubstr("yes, the next `token` refreshes it"));
  EXPECT_EQ(counterpart.count(side(), "refreshes"), 0);
  const std::string refreshed = token();
  EXPECT_EQ(counterpart.count(side(), "refreshes"), 1) << "it was due all the time";
  EXPECT_THAT(run({"status", provider(), kUser}).output, Not(HasSubstr(refreshed)));
  EXPECT_THAT(run({"status", provider(), kUser, "--json"}).output, Not(HasSubstr(refreshed)));
  EXPECT_NE(asJSON.output, "");
}

TEST_P(CommandStatusTest, NothingStoredExitsWith3) {
  const Result result = run({"status", provider(), kUser, "--json"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, HasSubstr("sign-in"));
}

TEST_P(CommandStatusTest, TheAccountsAsJSONAreThoseThatSignedIn) {
  EXPECT_EQ(run({"accounts", "--json"}).output, "[]\n");
  ASSERT_NO_FATAL_FAILURE(signIn());
  ASSERT_NO_FATAL_FAILURE(signIn("bob@example.com"));
  const qvr::Value value = json({"accounts", "--json"});
  const auto account = [this](const char* user) {
    return qvr::Value(qvr::Value::Object{{"provider", provider()}, {"user", user}});
  };
  EXPECT_EQ(value, qvr::Value(qvr::Value::Array{account(kUser), account("bob@example.com")}));
}

}  // namespace
}  // namespace e2e
