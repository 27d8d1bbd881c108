#include <gtest/gtest.h>

#include <string>

#include "src/platform/Unicode.h"

namespace qvr {
namespace {

struct ScalarCase {
  char32_t codePoint;
  std::string_view utf8;
  std::u16string_view utf16;
};

// The first and last code points of every encoded length, and those beside the surrogates.
const ScalarCase kScalars[] = {
    {0x0, std::string_view("\0", 1), std::u16string_view(u"\0", 1)},
    {0x7F, "\x7F", u"\x7F"},
    {0x80, "\xC2\x80", u"\x80"},
    {0x7FF, "\xDF\xBF", u"\x7FF"},
    {0x800, "\xE0\xA0\x80", u"\x800"},
    {0xD7FF, "\xED\x9F\xBF", u"\xD7FF"},
    {0xE000, "\xEE\x80\x80", u"\xE000"},
    {0xFFFF, "\xEF\xBF\xBF", u"\xFFFF"},
    {0x10000, "\xF0\x90\x80\x80", u"\xD800\xDC00"},
    {0x1F600, "\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
    {0x10FFFF, "\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
};

const char* const kMalformed[] = {
    "\x80",  // a continuation byte alone
    "\xBF",
    "\xC0\x80",  // overlong forms
    "\xC1\xBF",
    "\xE0\x80\x80",
    "\xE0\x9F\xBF",
    "\xF0\x80\x80\x80",
    "\xF0\x8F\xBF\xBF",
    "\xED\xA0\x80",  // surrogates
    "\xED\xBF\xBF",
    "\xF4\x90\x80\x80",  // above U+10FFFF
    "\xF5\x80\x80\x80",
    "\xF8\x88\x80\x80\x80",
    "\xFE",
    "\xFF",
    "\xC3",  // cut short
    "\xE2\x82",
    "\xF0\x9F\x98",
    "\xC3(",  // a lead without its continuation
    "\xE2\x82(",
    "\xE2(\x82",
    "\xF0\x9F(\x80",
};

TEST(UnicodeTest, ConvertsTheBoundsOfEveryLength) {
  for (const ScalarCase& c : kScalars) {
    SCOPED_TRACE(static_cast<unsigned>(c.codePoint));
    std::string appended = "a";
    appendUTF8(appended, c.codePoint);
    EXPECT_EQ(appended, "a" + std::string(c.utf8));
    EXPECT_TRUE(isUTF8(c.utf8));
    EXPECT_EQ(UTF16Length(c.utf8), c.utf16.size());
    std::u16string units = u"left over";
    EXPECT_TRUE(UTF16FromUTF8(c.utf8, &units));
    EXPECT_EQ(units, c.utf16);
    std::string text = "left over";
    EXPECT_TRUE(UTF8FromUTF16(c.utf16, &text));
    EXPECT_EQ(text, c.utf8);
  }
}

TEST(UnicodeTest, RefusesMalformedUTF8) {
  for (const std::string malformed : kMalformed) {
    SCOPED_TRACE(testing::PrintToString(malformed));
    EXPECT_FALSE(isUTF8(malformed));
    EXPECT_FALSE(isUTF8("ok\xC3\xA9" + malformed));
    EXPECT_EQ(wellFormedLength("ok\xC3\xA9" + malformed), 4U);
    std::u16string units;
    EXPECT_FALSE(UTF16FromUTF8(malformed + "ok", &units));
  }
}

TEST(UnicodeTest, EmptyTextIsWellFormed) {
  EXPECT_TRUE(isUTF8(""));
  EXPECT_EQ(wellFormedLength(""), 0U);
  EXPECT_EQ(UTF16Length(""), 0U);
  std::u16string units = u"x";
  EXPECT_TRUE(UTF16FromUTF8("", &units));
  EXPECT_EQ(units, u"");
  std::string text = "x";
  EXPECT_TRUE(UTF8FromUTF16(u"", &text));
  EXPECT_EQ(text, "");
}

TEST(UnicodeTest, FindsAFaultAtEveryPlaceInLongASCIIText) {
  for (std::size_t place = 0; place < 40; ++place) {
    std::string text(40, 'a');
    text[place] = '\xFF';
    EXPECT_EQ(wellFormedLength(text), place);
    EXPECT_EQ(wellFormedLength(text.substr(0, place)), place);
  }
}

TEST(UnicodeTest, CountsUTF16UnitsOfMixedText) {
  EXPECT_EQ(UTF16Length("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), 5U);
}

TEST(UnicodeTest, CountsAByteOutsideWellFormedTextAsOneUnit) {
  EXPECT_EQ(UTF16Length("\xFF"), 1U);
  EXPECT_EQ(UTF16Length("a\xED\xA0\x80z"), 5U);
  EXPECT_EQ(UTF16Length("\xF0\x9F\x98"), 3U);
}

TEST(UnicodeTest, RefusesLoneSurrogateUnits) {
  std::string text;
  for (const std::u16string_view units :
       {std::u16string_view(u"\xD800"), std::u16string_view(u"\xDC00"),
        std::u16string_view(u"\xD800z"), std::u16string_view(u"\xD800\xD800\xDC00"),
        std::u16string_view(u"\xDC00\xD800"), std::u16string_view(u"a\xDBFF")}) {
    EXPECT_FALSE(UTF8FromUTF16(units, &text));
  }
}

}  // namespace
}  // namespace qvr
