#include <gtest/gtest.h>

#include <array>
#include <string>

#include "src/platform/PercentCoding.h"

namespace qvr {
namespace {

constexpr std::string_view kKeptCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
constexpr CharacterSet kKept(kKeptCharacters);

struct CodingCase {
  Text input;
  Text output;
};

TEST(PercentCodingTest, DecodesEscapesAndNothingElse) {
  const CodingCase cases[] = {
      {"", ""},
      {"abc", "abc"},
      {"a+b", "a+b"},
      {"%2B", "+"},
      {"%00", std::string(1, '\0')},
      {"%41%5a%5A", "AZZ"},
      {"%2525", "%25"},
      {"%C3%A9\xC3\xA9", "\xC3\xA9\xC3\xA9"},
      {"\xC3%A9", "\xC3\xA9"},
      {"%F4%8F%BF%BF", "\xF4\x8F\xBF\xBF"},
      {std::nullopt, std::nullopt},
  };
  for (const CodingCase& c : cases) {
    EXPECT_EQ(percentDecoded(c.input), c.output) << c.input.value_or("(absent)");
  }
}

TEST(PercentCodingTest, BrokenEscapesDecodeToNothing) {
  for (const char* text : {"%", "%4", "%zz", "%4z", "%z4", "a%", "%%41", "% 1", "%+1", "%-1"}) {
    EXPECT_EQ(percentDecoded(text), std::nullopt) << text;
  }
}

TEST(PercentCodingTest, BytesThatAreNotUTF8DecodeToNothing) {
  for (const char* text :
       {"%FF", "%C0%80", "%ED%A0%80", "%F4%90%80%80", "%C3", "%A9", "a\xFF", "%E2%82"}) {
    EXPECT_EQ(percentDecoded(text), std::nullopt) << text;
  }
}

TEST(PercentCodingTest, EncodesEveryByteOutsideTheKeptSet) {
  const CodingCase cases[] = {
      {"", ""},
      {"a b+c", "a%20b%2Bc"},
      {"%41", "%2541"},
      {"\xC3\xA9", "%C3%A9"},
      {"\xF0\x9F\x98\x80", "%F0%9F%98%80"},
      {"~/?&=:@\n", "~%2F%3F%26%3D%3A%40%0A"},
      {std::string(1, '\0'), "%00"},
      {std::nullopt, std::nullopt},
      {"a\xFF", std::nullopt},
      {"\xED\xA0\x80", std::nullopt},
  };
  for (const CodingCase& c : cases) {
    EXPECT_EQ(percentEncoded(c.input, kKept), c.output) << c.output.value_or("(absent)");
  }
}

TEST(PercentCodingTest, KeepsExactlyTheKeptSetAmongASCII) {
  for (int c = 0; c < 128; ++c) {
    const std::string character(1, static_cast<char>(c));
    const bool isKept = kKeptCharacters.find(character) != std::string_view::npos;
    const Text encoded = percentEncoded(character, kKept);
    ASSERT_TRUE(encoded.has_value());
    EXPECT_EQ(*encoded == character, isKept) << c;
    EXPECT_EQ(encoded->size(), isKept ? 1U : 3U) << c;
    EXPECT_EQ(percentDecoded(encoded), character) << c;
  }
}

TEST(PercentCodingTest, EmptyKeptSetEscapesEverything) {
  EXPECT_EQ(percentEncoded("aZ", CharacterSet("")), "%61%5A");
}

TEST(PercentCodingTest, PairsHoldBothTextsEncoded) {
  EXPECT_EQ(encodedPair("a b", "c=d", kKept), "a%20b=c%3Dd");
  EXPECT_EQ(encodedPair("a", "~", kKept), "a=~");
  EXPECT_EQ(encodedPair("", "", kKept), "=");
}

TEST(PercentCodingTest, PairsPrintWhatCannotBeEncodedAsNull) {
  EXPECT_EQ(encodedPair("a", std::nullopt, kKept), "a=(null)");
  EXPECT_EQ(encodedPair(std::nullopt, "b", kKept), "(null)=b");
  EXPECT_EQ(encodedPair("a\xFF", "b c\xFF", kKept), "(null)=(null)");
}

}  // namespace
}  // namespace qvr
