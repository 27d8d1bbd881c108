// The error value and its printed form.

#include <gtest/gtest.h>

#include <limits>

#include "QVROAuth2Client/platform/Error.h"
#include "tests/support/ErrorMatchers.h"

namespace qvr {
namespace {

using support::described;
using support::entry;
using UserInfo = Error::UserInfo;

TEST(ErrorTest, KeepsDomainCodeAndUserInfo) {
  const ErrorPtr error = Error::errorWithDomain("D", -25300, described("text"));
  EXPECT_EQ(error->domain(), "D");
  EXPECT_EQ(error->code(), -25300);
  ASSERT_NE(error->userInfo(), nullptr);
  EXPECT_EQ(*error->userInfo(), described("text"));
}

TEST(ErrorTest, CodesAreSixtyFourBitsWide) {
  for (const std::int64_t code :
       {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(Error::errorWithDomain("D", code)->code(), code);
  }
}

TEST(ErrorTest, AbsentUserInfoIsNotEmptyUserInfo) {
  EXPECT_EQ(Error::errorWithDomain("D", 1)->userInfo(), nullptr);
  const ErrorPtr withEmpty = Error::errorWithDomain("D", 1, UserInfo{});
  ASSERT_NE(withEmpty->userInfo(), nullptr);
  EXPECT_TRUE(withEmpty->userInfo()->empty());
}

TEST(ErrorTest, TextsAreCopied) {
  std::string domain = "before";
  const ErrorPtr error = Error::errorWithDomain(domain, 1);
  domain = "after!";
  EXPECT_EQ(error->domain(), "before");
}

TEST(ErrorTest, FindsAValueByItsKey) {
  const ErrorPtr error =
      Error::errorWithDomain("D", 1, UserInfo{{"a", 1}, {"b", nullptr}, {"c", "x"}});
  ASSERT_NE(error->userInfoValue("b"), nullptr);
  EXPECT_TRUE(error->userInfoValue("b")->isNull());
  ASSERT_NE(error->userInfoValue("c"), nullptr);
  EXPECT_EQ(*error->userInfoValue("c"), Value("x"));
  EXPECT_EQ(error->userInfoValue("d"), nullptr);
  EXPECT_EQ(Error::errorWithDomain("D", 1)->userInfoValue("a"), nullptr);
}

TEST(ErrorTest, LocalizedDescriptionIsTheTextUnderItsKey) {
  EXPECT_EQ(Error::errorWithDomain("D", 1, described("text"))->localizedDescription(), "text");
  EXPECT_EQ(Error::errorWithDomain("D", 1)->localizedDescription(), std::nullopt);
  EXPECT_EQ(Error::errorWithDomain("D", 1, entry(NSLocalizedDescriptionKey, nullptr))
                ->localizedDescription(),
            std::nullopt);
  EXPECT_EQ(Error::errorWithDomain("D", 1, entry(NSDebugDescriptionErrorKey, "text"))
                ->localizedDescription(),
            std::nullopt);
}

TEST(ErrorTest, IsComparesDomainAndCode) {
  const ErrorPtr error = Error::errorWithDomain("D", 1);
  EXPECT_TRUE(error->is("D", 1));
  EXPECT_FALSE(error->is("D", 2));
  EXPECT_FALSE(error->is("d", 1));
}

struct DescriptionCase {
  std::optional<UserInfo> userInfo;
  const char* description;
};

TEST(ErrorTest, PrintsInTheFormOfTheLog) {
  const DescriptionCase cases[] = {
      {std::nullopt, "Error Domain=D Code=-7 \"(null)\""},
      {UserInfo{}, "Error Domain=D Code=-7 \"(null)\" UserInfo={}"},
      {described("T"), "Error Domain=D Code=-7 \"T\" UserInfo={NSLocalizedDescription=T}"},
      {described(""), "Error Domain=D Code=-7 \"\" UserInfo={NSLocalizedDescription=}"},
      {entry(NSDebugDescriptionErrorKey, "why"),
       "Error Domain=D Code=-7 \"why\" UserInfo={NSDebugDescription=why}"},
      {UserInfo{{"NSDebugDescription", "why"}, {"NSLocalizedDescription", "T"}},
       "Error Domain=D Code=-7 \"T\" UserInfo={NSDebugDescription=why, NSLocalizedDescription=T}"},
      {UserInfo{{"NSLocalizedDescription", 5}, {"n", nullptr}},
       "Error Domain=D Code=-7 \"(null)\" UserInfo={NSLocalizedDescription=5, n=<null>}"},
  };
  for (const DescriptionCase& c : cases)
    EXPECT_EQ(Error::errorWithDomain("D", -7, c.userInfo)->description(), c.description);
}

TEST(ErrorTest, PrintedFormCarriesNoBodyAndNoQuery) {
  const URL url = *URL::URLWithString("m.x://auth?code=s3cret#s3cret");
  const UserInfo cases[] = {
      entry("QVROAuth2HTTPResponseData", Data{'s', '3', 'c', 'r', 'e', 't'}),
      entry(NSURLErrorFailingURLErrorKey, url),
      entry(NSURLErrorFailingURLStringErrorKey, "m.x://auth?code=s3cret"),
      entry(NSURLErrorFailingURLStringErrorKey, "m.x://auth#s3cret"),
      entry("nested", Value::Array{Data{'s', '3', 'c', 'r', 'e', 't'}, url}),
  };
  for (const UserInfo& userInfo : cases) {
    const std::string line = Error::errorWithDomain("D", 1, userInfo)->description();
    EXPECT_EQ(line.find("s3cret"), std::string::npos) << line;
  }
}

TEST(ErrorTest, PrintsAFailingURLUpToItsQuery) {
  const ErrorPtr error = Error::errorWithDomain(
      "D", 1, entry(NSURLErrorFailingURLStringErrorKey, "https://h/p?code=s3cret"));
  EXPECT_EQ(error->description(),
            "Error Domain=D Code=1 \"(null)\" UserInfo={NSErrorFailingURLStringKey=https://h/p}");
}

}  // namespace
}  // namespace qvr
