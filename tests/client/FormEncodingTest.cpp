// The form encoding of the token requests, with its own way of treating spaces.

#include <gtest/gtest.h>

#include <cstdio>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/client/FormEncoding.h"

namespace {

constexpr std::string_view kKept =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789*-._";

std::string rangeReason(std::string_view text) {
  try {
    formPercentEncoded(text);
  } catch (const qvr::RangeException& exception) {
    EXPECT_EQ(exception.name(), "NSRangeException");
    return exception.reason().value_or("no reason");
  }
  return "nothing raised";
}

std::string outOfBounds(std::size_t length) {
  return "*** -[NSString substringWithRange:]: Range {9223372036854775807, 0} out of bounds; "
         "string length " +
         std::to_string(length);
}

TEST(FormEncodingTest, KeepsItsSixtySixCharacters) {
  EXPECT_EQ(formPercentEncoded(kKept), kKept);
}

TEST(FormEncodingTest, AsteriskHyphenFullStopAndLowLineStay) {
  EXPECT_EQ(formPercentEncoded("*-._"), "*-._");
}

TEST(FormEncodingTest, ATildeIsEscaped) {
  EXPECT_EQ(formPercentEncoded("a~b"), "a%7Eb");
}

TEST(FormEncodingTest, EveryOtherASCIICharacterButTheSpaceIsEscapedInUpperCaseHex) {
  for (char c = 1; c < 127; ++c) {
    if (c == ' ' || kKept.find(c) != std::string_view::npos) continue;
    char escaped[4];
    std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(c));
    EXPECT_EQ(formPercentEncoded(std::string(1, c)), escaped);
  }
}

TEST(FormEncodingTest, OtherCharactersAreEscapedAsTheirUTF8Bytes) {
  EXPECT_EQ(formPercentEncoded("\xC3\xA9\xF0\x9F\x98\x80"), "%C3%A9%F0%9F%98%80");
  EXPECT_EQ(formPercentEncoded(std::string(1, '\0')), "%00");
}

TEST(FormEncodingTest, AnEmptyTextStaysEmpty) {
  EXPECT_EQ(formPercentEncoded(""), "");
}

TEST(FormEncodingTest, TextThatIsNotUTF8IsAbsent) {
  EXPECT_EQ(formPercentEncoded("a\xFF"), std::nullopt);
  EXPECT_EQ(formPercentEncoded("\xED\xA0\x80"), std::nullopt);
  EXPECT_EQ(formPercentEncoded(nullptr), std::nullopt);
}

TEST(FormEncodingTest, ATrailingSpaceAppendsTheEncodedPrefixAndAPlusToTheWholeText) {
  const std::pair<const char*, const char*> cases[] = {
      {"a ", "a a+"},      {" ", " +"},           {"a/b ", "a/b a%2Fb+"},
      {"a~ ", "a~ a%7E+"}, {"a  ", "a  a+a%20+"}, {"a b ", "a b a+a%20b+"},
      {"  ", "  +%20+"},   {" a ", " a +%20a+"},
  };
  for (const auto& [text, encoded] : cases)
    EXPECT_EQ(formPercentEncoded(text), encoded) << '"' << text << '"';
}

TEST(FormEncodingTest, ASpaceWithTextAfterItRaisesTheRangeException) {
  EXPECT_EQ(rangeReason("a b"), outOfBounds(3));
  EXPECT_EQ(rangeReason(" b"), outOfBounds(2));
  EXPECT_EQ(rangeReason("a b c"), outOfBounds(5));
  EXPECT_EQ(rangeReason("a  b"), outOfBounds(4));
}

TEST(FormEncodingTest, TheRangeExceptionCountsUTF16Units) {
  EXPECT_EQ(rangeReason("\xC3\xA9 b"), outOfBounds(3));
  EXPECT_EQ(rangeReason("a \xF0\x9F\x98\x80"), outOfBounds(4));
}

TEST(FormEncodingTest, AnUnencodablePrefixBeforeASpaceIsAbsentAndDoesNotRaise) {
  EXPECT_EQ(formPercentEncoded("\xFF "), std::nullopt);
  EXPECT_EQ(formPercentEncoded("\xFF b"), std::nullopt);
  EXPECT_EQ(formPercentEncoded("a \xFF "), std::nullopt);
  EXPECT_EQ(formPercentEncoded("a \xFF b"), std::nullopt);
}

TEST(FormEncodingTest, OnlyThePrefixesBeforeSpacesAreEncodedSoLaterTextRaises) {
  EXPECT_NE(rangeReason("a b\xFF"), "nothing raised");
}

TEST(FormEncodingTest, OtherWhiteSpaceIsNoSpace) {
  EXPECT_EQ(formPercentEncoded("a\tb\nc\xC2\xA0"
                               "d"),
            "a%09b%0Ac%C2%A0d");
}

TEST(FormEncodingTest, APlusIsEscaped) {
  EXPECT_EQ(formPercentEncoded("a+b"), "a%2Bb");
}

TEST(FormEncodingTest, AParameterIsNameEqualsValueBothEncoded) {
  EXPECT_EQ(formParameter("name", "a/b"), "name=a%2Fb");
  EXPECT_EQ(formParameter("na~me", "="), "na%7Eme=%3D");
  EXPECT_EQ(formParameter("name", ""), "name=");
  EXPECT_EQ(formParameter("na~me", "a/b "), "na%7Eme=a/b a%2Fb+");
}

TEST(FormEncodingTest, AnAbsentEncodingPrintsAsNull) {
  EXPECT_EQ(formParameter("name", "\xFF"), "name=(null)");
  EXPECT_EQ(formParameter("name", "\xFF "), "name=(null)");
  EXPECT_EQ(formParameter("name", nullptr), "name=(null)");
}

}  // namespace
