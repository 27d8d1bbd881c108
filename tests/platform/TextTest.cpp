// Text that may be absent.

#include <gtest/gtest.h>

#include "QVROAuth2Client/platform/Text.h"

namespace qvr {
namespace {

TEST(TextTest, AbsentTextIsWhatItIsMadeOf) {
  constexpr const char* kNoCharacters = nullptr;
  const Text none;
  const TextView views[] = {TextView(), nullptr, std::nullopt, kNoCharacters, none};
  for (const TextView& view : views) {
    EXPECT_FALSE(view.has_value());
    EXPECT_FALSE(view);
    EXPECT_EQ(view.view(), "");
    EXPECT_EQ(view.text(), std::nullopt);
  }
}

TEST(TextTest, PresentTextIsWhatItIsMadeOf) {
  const std::string string = "text";
  const Text text = string;
  const TextView views[] = {"text", string, std::string_view(string), text};
  for (const TextView& view : views) {
    EXPECT_TRUE(view.has_value());
    EXPECT_TRUE(view);
    EXPECT_EQ(view.view(), "text");
    EXPECT_EQ(view.text(), "text");
  }
}

TEST(TextTest, EmptyTextIsNotAbsent) {
  const std::string string;
  const Text text = string;
  for (const TextView& view :
       {TextView(""), TextView(string), TextView(std::string_view()), TextView(text)}) {
    EXPECT_TRUE(view.has_value());
    EXPECT_EQ(view.text(), Text(""));
  }
}

TEST(TextTest, ZeroCharactersAreCarried) {
  using namespace std::string_literals;
  EXPECT_EQ(TextView("a\0b"s).text(), "a\0b"s);
}

TEST(TextTest, TakenTextIsACopyOfItsOwn) {
  std::string string = "before";
  const Text taken = TextView(string).text();
  string = "after!";
  EXPECT_EQ(taken, "before");
}

TEST(TextTest, BytesThatAreNotUTF8AreCarriedAsTheyAre) {
  EXPECT_EQ(TextView("\xff\xc0").text(), "\xff\xc0");
}

static_assert(!TextView(nullptr).has_value() && TextView("").has_value(),
              "made without running code");

}  // namespace
}  // namespace qvr
