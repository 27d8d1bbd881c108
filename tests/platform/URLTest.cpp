#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QVROAuth2Client/platform/URL.h"

namespace qvr {
namespace {

constexpr std::nullopt_t kAbsent = std::nullopt;

struct PartsCase {
  const char* text;
  Text scheme;
  Text host;
  Text path;
  Text query;
};

void expectParts(const PartsCase& expected) {
  SCOPED_TRACE(expected.text);
  const auto url = URL::URLWithString(expected.text);
  ASSERT_TRUE(url.has_value());
  EXPECT_EQ(url->absoluteString(), expected.text);
  EXPECT_EQ(url->scheme(), expected.scheme);
  EXPECT_EQ(url->host(), expected.host);
  EXPECT_EQ(url->path(), expected.path);
  EXPECT_EQ(url->query(), expected.query);
}

TEST(URLTest, SplitsRedirectsEndpointsAndReferences) {
  const PartsCase cases[] = {
      {":/oauth2/auth", kAbsent, kAbsent, "/oauth2/auth", kAbsent},
      {"", kAbsent, kAbsent, kAbsent, kAbsent},
      {"m.x://auth", "m.x", "auth", "", kAbsent},
      {"m.x://auth/", "m.x", "auth", "/", kAbsent},
      {"m.x://auth?code=a&state=b", "m.x", "auth", "", "code=a&state=b"},
      {"M.X://AUTH?code=1", "M.X", "AUTH", "", "code=1"},
      {"com.example:/oauth2/auth?code=x#frag", "com.example", kAbsent, "/oauth2/auth", "code=x"},
      {"https://h:8080/p?a=b?c", "https", "h", "/p", "a=b?c"},
      {"s:opaque", "s", kAbsent, kAbsent, kAbsent},
      {"s:///p", "s", kAbsent, "/p", kAbsent},
      {"abc", kAbsent, kAbsent, "abc", kAbsent},
  };
  for (const PartsCase& expected : cases)
    expectParts(expected);
}

TEST(URLTest, TextThatBeginsWithAColonHasNoSchemeButKeepsTheRest) {
  const PartsCase cases[] = {
      {":", kAbsent, kAbsent, kAbsent, kAbsent},
      {":auth", kAbsent, kAbsent, "auth", kAbsent},
      {":/a?code=1", kAbsent, kAbsent, "/a", "code=1"},
      {"://h/a", kAbsent, "h", "/a", kAbsent},
      {"::", kAbsent, kAbsent, ":", kAbsent},
  };
  for (const PartsCase& expected : cases)
    expectParts(expected);
}

TEST(URLTest, DelimitersEndAPartOnlyInTheirPlace) {
  const PartsCase cases[] = {
      {"//h/p", kAbsent, "h", "/p", kAbsent},
      {"/a:b", kAbsent, kAbsent, "/a:b", kAbsent},
      {"a/b:c", kAbsent, kAbsent, "a/b:c", kAbsent},
      {"?a:b", kAbsent, kAbsent, kAbsent, "a:b"},
      {"#a:b?c", kAbsent, kAbsent, kAbsent, kAbsent},
      {"s://h#f?q", "s", "h", "", kAbsent},
      {"s://h?", "s", "h", "", ""},
      {"s://h?q=/x//y", "s", "h", "", "q=/x//y"},
      {"s:opaque?q", "s", kAbsent, kAbsent, "q"},
      {"s:", "s", kAbsent, kAbsent, kAbsent},
      {"s:/", "s", kAbsent, "/", kAbsent},
      {"s://", "s", kAbsent, "", kAbsent},
      {"s://h/p//x/", "s", "h", "/p//x/", kAbsent},
      {"s://h/a/../b/./c", "s", "h", "/a/../b/./c", kAbsent},
  };
  for (const PartsCase& expected : cases)
    expectParts(expected);
}

TEST(URLTest, AcceptsEveryLegalCharacterInPathAndQuery) {
  expectParts({"s:/AZaz09!$&'()*+,-./:;=?@_~[]?!$&'()*+,-./:;=?@_~[]", "s", kAbsent,
               "/AZaz09!$&'()*+,-./:;=", "@_~[]?!$&'()*+,-./:;=?@_~[]"});
  expectParts({"s:/@_~[]", "s", kAbsent, "/@_~[]", kAbsent});
}

TEST(URLTest, DecodesHostAndPathButNotTheQuery) {
  expectParts({"s://%61%C3%A9/%2F%c3%a9+%25?%61=%2f", "s", "a\xC3\xA9", "//\xC3\xA9+%", "%61=%2f"});
}

TEST(URLTest, PathWhoseEscapesAreNotUTF8IsAbsent) {
  for (const char* path : {"/%FF", "/a%C0%80", "/%ED%A0%80", "/%F4%90%80%80"}) {
    const auto url = URL::URLWithString(std::string("s://h") + path);
    ASSERT_TRUE(url.has_value()) << path;
    EXPECT_EQ(url->path(), kAbsent) << path;
    EXPECT_EQ(url->host(), "h") << path;
  }
}

TEST(URLTest, HostWhoseEscapesAreNotUTF8MakesNoURL) {
  for (const char* text : {"s://%FF/", "s://a%C3/p", "s://u@%FF:1/"}) {
    EXPECT_FALSE(URL::URLWithString(text).has_value()) << text;
  }
}

TEST(URLTest, IllegalTextMakesNoURL) {
  for (const char* text : {
           "https://h/a b",  "https://h/%zz",   "https://h/\xC3\xA9", "https://h/a#b#c",
           "https://h/%",    "https://h/%4",    "https://h/%4g",      "https://h/?q=%",
           "https://h/a\"b", "https://h/<",     "https://h/>",        "https://h/\\",
           "https://h/^",    "https://h/`",     "https://h/{",        "https://h/|",
           "https://h/}",    "https://h/a\tb",  "https://h/a\n",      " https://h/",
           "https://h/\x7F", "https://h/p?a b", "https://h/#a b",     "https://h h/",
       }) {
    EXPECT_FALSE(URL::URLWithString(text).has_value()) << text;
  }
  EXPECT_FALSE(URL::URLWithString(std::string_view("s:/a\0b", 6)).has_value());
}

TEST(URLTest, AbsentTextMakesNoURL) {
  EXPECT_FALSE(URL::URLWithString(nullptr).has_value());
  EXPECT_FALSE(URL::URLWithString(std::nullopt).has_value());
}

TEST(URLTest, SchemeFollowsTheGrammar) {
  for (const char* text : {"a:/p", "A1+-.:/p", "com.example.app:/p"}) {
    const auto url = URL::URLWithString(text);
    ASSERT_TRUE(url.has_value()) << text;
    EXPECT_EQ(url->scheme(), std::string(text, std::string_view(text).find(':'))) << text;
  }
  for (const char* text : {"1a:b", "1a://h", "a_b:/p", "+a:/p", "-:/p", "%61:/p", "a@b:/p"}) {
    EXPECT_FALSE(URL::URLWithString(text).has_value()) << text;
  }
}

struct AuthorityCase {
  const char* text;
  Text host;
  std::optional<std::uint32_t> port;
};

TEST(URLTest, SplitsUserInformationHostAndPort) {
  const AuthorityCase cases[] = {
      {"s://h", "h", kAbsent},
      {"s://h:", "h", kAbsent},
      {"s://h:0/", "h", 0},
      {"s://h:8080/p", "h", 8080},
      {"s://h:08080?q", "h", 8080},
      {"s://h:65536", "h", 65536},
      {"s://h:4294967295", "h", 4294967295U},
      {"s://user:word@h:1/", "h", 1},
      {"s://@h", "h", kAbsent},
      {"s://u@/p", kAbsent, kAbsent},
      {"s://:80/p", kAbsent, 80},
      {"s://[::1]/p", "::1", kAbsent},
      {"s://[::1]:443/p", "::1", 443},
      {"s://u:w@[fe80::1%25eth0]:443", "fe80::1%eth0", 443},
      {"s://h/p@x:1", "h", kAbsent},
      {"s:/p:80", kAbsent, kAbsent},
  };
  for (const AuthorityCase& expected : cases) {
    SCOPED_TRACE(expected.text);
    const auto url = URL::URLWithString(expected.text);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(url->host(), expected.host);
    EXPECT_EQ(url->port(), expected.port);
  }
}

TEST(URLTest, MalformedAuthorityMakesNoURL) {
  for (const char* text :
       {"s://h:80a/", "s://h:-1/", "s://h:+1/", "s://h:%31/", "s://h:1:2/", "s://h:4294967296/",
        "s://a@b@c/", "s://[::1/", "s://::1]/", "s://[::1]x/", "s://[::1]80/", "s://[]/",
        "s://[name]/", "s://[[::1]]/", "s://a[b/", "s://u[@h/", "s://[::1]@h/"}) {
    EXPECT_FALSE(URL::URLWithString(text).has_value()) << text;
  }
}

TEST(URLTest, URLsAreEqualWhenTheirTextsAre) {
  EXPECT_EQ(URL::URLWithString("s://h/p"), URL::URLWithString("s://h/p"));
  EXPECT_NE(URL::URLWithString("s://h/p"), URL::URLWithString("s://H/p"));
  EXPECT_NE(URL::URLWithString("s://h"), URL::URLWithString("s://h/"));
}

TEST(URLTest, LongTextIsReadInOnePass) {
  const std::string path(1 << 20, '@');
  const auto url = URL::URLWithString("s://h/" + path + "?" + path);
  ASSERT_TRUE(url.has_value());
  EXPECT_EQ(url->path(), "/" + path);
  EXPECT_EQ(url->query(), path);
}

}  // namespace
}  // namespace qvr
