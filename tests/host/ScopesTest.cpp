#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/Scopes.h"

namespace host {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ScopesTest, DefaultsAreTheMailScopesOfTheProvider) {
  EXPECT_EQ(defaultMailScope(QVROAuth2ProviderGoogle), "https://mail.google.com/ openid email");
  EXPECT_EQ(
      splitScope(defaultMailScope(QVROAuth2ProviderMicrosoft)),
      (qvr::TextSet{"https://outlook.office.com/IMAP.AccessAsUser.All",
                    "https://outlook.office.com/POP.AccessAsUser.All",
                    "https://outlook.office.com/SMTP.Send", "offline_access", "openid", "email"}));
}

TEST(ScopesTest, ListIsSplitOnSingleSpaces) {
  EXPECT_EQ(splitScope("a"), (qvr::TextSet{"a"}));
  EXPECT_EQ(splitScope("a b a"), (qvr::TextSet{"a", "b"}));
  EXPECT_EQ(splitScope("a  b"), (qvr::TextSet{"", "a", "b"}));
  EXPECT_EQ(splitScope("a "), (qvr::TextSet{"", "a"}));
  EXPECT_EQ(splitScope(""), (qvr::TextSet{""}));
  EXPECT_EQ(splitScope("a\tb"), (qvr::TextSet{"a\tb"}));
}

TEST(ScopesTest, MissingAreThoseThatWereNotGranted) {
  EXPECT_THAT(missingScopes({"a", "b"}, {"a"}), ElementsAre("b"));
  EXPECT_THAT(missingScopes({"a"}, {"a", "b"}), IsEmpty());
  EXPECT_THAT(missingScopes({"a", "b"}, {""}), ElementsAre("a", "b"));
}

TEST(ScopesTest, CaseOfAGrantedScopeDoesNotMatter) {
  EXPECT_THAT(missingScopes({"IMAP.AccessAsUser.All"}, {"imap.accessasuser.all"}), IsEmpty());
}

TEST(ScopesTest, ScopesThatProvidersDoNotRepeatAreNotMissed) {
  EXPECT_THAT(missingScopes({"offline_access", "openid", "profile", "email", ""}, {"mail"}),
              IsEmpty());
}

}  // namespace

}  // namespace host
