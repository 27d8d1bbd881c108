// qvr-oauth2 accounts: the items of this application, one a line.
#include <algorithm>

#include "host/Setup.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ParsedJSON.h"

namespace host_test {
namespace {

using testing::Contains;
using testing::HasSubstr;

class AccountsTest : public CommandTest {
 protected:
  void storeFor(const std::string& provider, const std::string& user) {
    store({provider, user}, record("access", "refresh", 3600));
  }

  static std::vector<std::string> usersIn(const std::string& json) {
    const qvr::Value value = parsedJSON(json);
    const auto* const objects = value.as<qvr::Value::Array>();
    std::vector<std::string> users;
    for (const qvr::Value& each : objects == nullptr ? qvr::Value::Array() : *objects)
      users.push_back(memberOf(each, "user").text().value_or(""));
    return users;
  }
};

TEST_F(AccountsTest, ListsProviderAndUserSorted) {
  install();
  storeFor("Microsoft", "a@example.org");
  storeFor("Google", "b@example.org");
  storeFor("Google", "a@example.org");
  const Printed printed = runAccounts();
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.output,
            "Google\ta@example.org\nGoogle\tb@example.org\nMicrosoft\ta@example.org\n");
  EXPECT_EQ(printed.error, "");
}

TEST_F(AccountsTest, LeavesOutItemsOfOtherProgramsAndOtherBundleIdentifiers) {
  install();
  keychain->put("org.other.mail.Google.OAuth2Token", "other@example.org", {1});
  keychain->put("Google.OAuth2Token", "none@example.org", {1});
  keychain->put("org.example.mail.google.OAuth2Token", "case@example.org", {1});
  storeFor("Google", "mine@example.org");
  EXPECT_EQ(runAccounts().output, "Google\tmine@example.org\n");
}

TEST_F(AccountsTest, ListsItemsThatCannotBeRead) {
  install();
  putItem(google, "damaged");
  EXPECT_EQ(runAccounts().output, "Google\tuser@example.org\n");
}

TEST_F(AccountsTest, KeepsEachAccountOnOneLine) {
  install();
  storeFor("Google", "two\nlines\tand a tab");
  EXPECT_EQ(runAccounts().output, "Google\ttwo?lines?and a tab\n");
}

TEST_F(AccountsTest, ListsTheSameAsJSON) {
  install();
  storeFor("Microsoft", "a@example.org");
  storeFor("Google", "b@example.org");
  storeFor("Google", "a@example.org");
  const Printed printed = runAccounts(true);
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.error, "");
  EXPECT_EQ(printed.output, R"([{"provider":"Google","user":"a@example.org"},)"
                            R"({"provider":"Google","user":"b@example.org"},)"
                            R"({"provider":"Microsoft","user":"a@example.org"}])"
                            "\n");
}

TEST_F(AccountsTest, NamesUsersInJSONExactlyAsTheyAreStored) {
  install();
  for (const char* const user : {"two\nlines\tand a tab", "\"quoted\" \\", "caf\u00e9"}) {
    storeFor("Google", user);
    const Printed printed = runAccounts(true);
    EXPECT_EQ(std::count(printed.output.begin(), printed.output.end(), '\n'), 1);
    EXPECT_THAT(usersIn(printed.output), Contains(user));
  }
}

TEST_F(AccountsTest, PrintsAnEmptyListAsJSONWhenNobodyIsSignedIn) {
  install();
  const Printed printed = runAccounts(true);
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.output, "[]\n");
  EXPECT_EQ(printed.error, runAccounts().error);
}

TEST_F(AccountsTest, SaysWhenNobodyIsSignedIn) {
  install();
  const Printed printed = runAccounts();
  EXPECT_EQ(printed.status, host::kDone);
  EXPECT_EQ(printed.output, "");
  EXPECT_EQ(printed.error,
            "qvr-oauth2: No account of org.example.mail is stored. Sign in first: "
            "`qvr-oauth2 sign-in PROVIDER USER`\n");
}

// A keychain that cannot list.
class UnlistedKeychain final : public qvr::KeychainItems {
 public:
  explicit UnlistedKeychain(std::int32_t status) : status_(status) {}
  std::int32_t copyMatching(const qvr::KeychainQuery&, qvr::Data*) override { return status_; }
  std::int32_t add(const qvr::KeychainQuery&) override { return status_; }
  std::int32_t update(const qvr::KeychainQuery&, const qvr::KeychainQuery&) override {
    return status_;
  }
  std::int32_t remove(const qvr::KeychainQuery&) override { return status_; }
  std::int32_t list(std::vector<qvr::KeychainItemName>*) override { return status_; }

 private:
  const std::int32_t status_;
};

Printed accountsWith(const host::Configuration& configuration, std::int32_t status) {
  const qvr::ScopedWorld world;
  host::Seams seams;
  seams.keychainItems = qvr::makeRef<UnlistedKeychain>(status);
  EXPECT_FALSE(host::installHost(configuration, seams));
  return collect([&] { return host::accounts(configuration, false); });
}

TEST_F(AccountsTest, ReportsAKeychainThatCannotList) {
  install();
  EXPECT_EQ(accountsWith(configuration, qvr::errSecInteractionNotAllowed).status,
            host::kTryAgainLater);
  const Printed printed = accountsWith(configuration, qvr::errSecAuthFailed);
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr("key or passphrase is not the right one"));
  EXPECT_EQ(accountsWith(configuration, qvr::errSecItemNotFound).status, host::kDone);
}

}  // namespace
}  // namespace host_test
