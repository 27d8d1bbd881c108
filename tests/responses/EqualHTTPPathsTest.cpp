// How the path of a redirect is compared with the registered one.

#include <gtest/gtest.h>

#include "src/responses/EqualHTTPPaths.h"

namespace {

const qvr::Text kRoots[] = {std::nullopt, "", "/"};

TEST(EqualHTTPPathsTest, AbsentEmptyAndSlashAreAllTheRoot) {
  for (const qvr::Text& path : kRoots) {
    for (const qvr::Text& expected : kRoots)
      EXPECT_TRUE(equalHTTPPaths(path, expected));
  }
}

TEST(EqualHTTPPathsTest, TheRootEqualsNoOtherPath) {
  for (const qvr::Text& root : kRoots) {
    for (const char* other : {"/x", "x", "//", "/ "}) {
      EXPECT_FALSE(equalHTTPPaths(root, other)) << other;
      EXPECT_FALSE(equalHTTPPaths(other, root)) << other;
    }
  }
}

TEST(EqualHTTPPathsTest, OtherPathsAreEqualOnlyWhenExactlyEqual) {
  EXPECT_TRUE(equalHTTPPaths("/oauth2/auth", "/oauth2/auth"));
  EXPECT_TRUE(equalHTTPPaths("//", "//"));
  EXPECT_FALSE(equalHTTPPaths("/oauth2/Auth", "/oauth2/auth")) << "case matters";
  EXPECT_FALSE(equalHTTPPaths("/oauth2/aut", "/oauth2/auth"));
  EXPECT_FALSE(equalHTTPPaths("oauth2/auth", "/oauth2/auth"));
}

TEST(EqualHTTPPathsTest, ATrailingSlashMakesAnotherPath) {
  EXPECT_FALSE(equalHTTPPaths("/x/", "/x"));
  EXPECT_FALSE(equalHTTPPaths("/x", "/x/"));
}

}  // namespace
