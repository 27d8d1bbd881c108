#include <gtest/gtest.h>

#include "host/SignInState.h"

namespace host {

namespace {

struct Case {
  const char* url;
  std::optional<std::string> state;
};

TEST(SignInStateTest, StateIsReadAsTheLibraryReadsIt) {
  const Case cases[] = {
      {"m.x://auth?code=a&state=b", "b"},
      {"m.x://auth?state=b", "b"},
      {"com.example:/oauth2/auth?state=b#fragment", "b"},
      {"m.x://auth?state=a&state=b", "b"},
      {"m.x://auth?state=a&state=%FF", std::nullopt},
      {"m.x://auth?state=a+b", "a+b"},
      {"m.x://auth?state=a%2Bb%3D%3D", "a+b=="},
      {"m.x://auth?state=a=b", "a=b"},
      {"m.x://auth?state=a?b", "a?b"},
      {"m.x://auth?state=//a/b", "//a/b"},
      {"m.x://auth?state=%3F%23", "?#"},
      {"m.x://auth?%73tate=b", "b"},
      {"m.x://auth?state=", ""},
      {"m.x://auth?state", std::nullopt},
      {"m.x://auth?State=b", std::nullopt},
      {"m.x://auth?=b&&x=y", std::nullopt},
      {"m.x://auth", std::nullopt},
      {"m.x://auth?", std::nullopt},
  };
  for (const Case& each : cases) {
    const auto url = qvr::URL::URLWithString(each.url);
    ASSERT_TRUE(url) << each.url;
    EXPECT_EQ(stateInURL(*url), each.state) << each.url;
  }
}

}  // namespace

}  // namespace host
