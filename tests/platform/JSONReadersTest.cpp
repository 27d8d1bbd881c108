// Both readers behind JSONObjectWithData, held to one table.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "src/platform/JSONReaders.h"
#include "src/platform/Unicode.h"
#include "tests/platform/BytesOf.h"

namespace qvr {
namespace {

using namespace std::string_literals;
using Array = Value::Array;
using Object = Value::Object;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string repeated(std::string_view piece, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i)
    text += piece;
  return text;
}

std::string nestedArrays(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

// UTF-8 text in UTF-16 (units of 2 bytes) or UTF-32 (4).
std::string encoded(std::string_view text, std::size_t unitSize, bool isBigEndian) {
  std::u16string units;
  EXPECT_TRUE(UTF16FromUTF8(text, &units));
  std::string bytes;
  for (std::size_t i = 0; i < units.size(); ++i) {
    char32_t code = units[i];
    if (unitSize == 4 && (code & 0xFC00) == 0xD800) {
      code = 0x10000 + ((code - 0xD800) << 10) + (units[++i] - 0xDC00U);
    }
    for (std::size_t byte = 0; byte < unitSize; ++byte) {
      const std::size_t shift = 8 * (isBigEndian ? unitSize - 1 - byte : byte);
      bytes.push_back(static_cast<char>((code >> shift) & 0xFF));
    }
  }
  return bytes;
}

enum class ReadBy { kBoth, kLenientOnly };

struct AcceptedCase {
  std::string body;
  Value value;
  ReadBy readBy = ReadBy::kBoth;
};

void expectAccepted(const AcceptedCase& expected) {
  SCOPED_TRACE(testing::PrintToString(expected.body.substr(0, 200)));
  JSONFailure failure;
  const auto lenient = readLenientJSON(bytesOf(expected.body), &failure);
  ASSERT_TRUE(lenient.has_value()) << failure.reason << " at " << failure.byteOffset;
  EXPECT_TRUE(*lenient == expected.value) << lenient->description();
  const auto plain = readPlainJSON(bytesOf(expected.body));
  ASSERT_EQ(plain.has_value(), expected.readBy == ReadBy::kBoth);
  EXPECT_TRUE(!plain || *plain == expected.value) << plain->description();
}

TEST(JSONReadersTest, ReadEveryKindOfValue) {
  const AcceptedCase cases[] = {
      {"[]", Array{}},
      {"{}", Object{}},
      {" \t\r\n[ \t\r\n] \t\r\n", Array{}},
      {"[null,true,false]", Array{nullptr, true, false}},
      {R"(["",{"":[]}])", Array{"", Object{{"", Array{}}}}},
      {R"({"b":1 , "a" :"x"})", Object{{"b", 1}, {"a", "x"}}},
      {R"({"a":{"b":[{"c":null}]}})", Object{{"a", Object{{"b", Array{Object{{"c", nullptr}}}}}}}},
      {"[\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x7F\"]",
       Array{"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x7F"}},
      {R"(["\"\\\/\b\f\n\r\t"])", Array{"\"\\/\b\f\n\r\t"}},
      {R"(["\u0041\u00e9\u20AC\ud83d\ude00z"])", Array{"A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"}},
      {R"(["a\u0000b"])", Array{"a\0b"s}},
      {R"(["\uFFFF\uE000\uD7FF"])", Array{"\xEF\xBF\xBF\xEE\x80\x80\xED\x9F\xBF"}},
      {R"(["\ud800\udc00\uDBFF\uDFFF"])", Array{"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"}},
      {R"({"\u0061":1})", Object{{"a", 1}}},
  };
  for (const AcceptedCase& expected : cases)
    expectAccepted(expected);
}

TEST(JSONReadersTest, KeepIntegersAsIntegersAndTheRestAsDoubles) {
  const AcceptedCase cases[] = {
      {"[0,-0,7,-12,3600]", Array{0, 0, 7, -12, 3600}},
      {"[9223372036854775807,-9223372036854775808]",
       Array{std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}},
      {"[9223372036854775808,18446744073709551615]",
       Array{std::uint64_t{9223372036854775808U}, std::numeric_limits<std::uint64_t>::max()}},
      {"[0.0,1.0,-1.5,1e3,1E+3,25e-1,0e0,0.1]",
       Array{0.0, 1.0, -1.5, 1000.0, 1000.0, 2.5, 0.0, 0.1}},
      {"[1.7976931348623157e308,4.9406564584124654e-324,2.2250738585072011e-308]",
       Array{std::numeric_limits<double>::max(), std::numeric_limits<double>::denorm_min(),
             2.2250738585072011e-308}},
      {"[1e-400,0e400,0.0e-99999999999]", Array{0.0, 0.0, 0.0}},
      {"[0." + std::string(400, '0') + "5e401]", Array{5.0}},
      {"[3.14159265358979323846264338327950288]", Array{3.14159265358979323846}},
  };
  for (const AcceptedCase& expected : cases)
    expectAccepted(expected);
}

TEST(JSONReadersTest, NegativeZeroWithAPointKeepsItsSign) {
  JSONFailure failure;
  for (const auto& value :
       {readPlainJSON(bytesOf("[-0.0]")), readLenientJSON(bytesOf("[-0.0]"), &failure)}) {
    ASSERT_TRUE(value.has_value());
    const double* number = value->as<Array>()->at(0).as<double>();
    ASSERT_NE(number, nullptr);
    EXPECT_TRUE(*number == 0 && std::signbit(*number));
  }
}

TEST(JSONReadersTest, NumbersBeyond64BitsBecomeDoubles) {
  const AcceptedCase cases[] = {
      {"[18446744073709551616]", Array{18446744073709551616.0}, ReadBy::kLenientOnly},
      {"[-9223372036854775809]", Array{-9223372036854775809.0}, ReadBy::kLenientOnly},
      {"[1" + std::string(30, '0') + "]", Array{1e30}, ReadBy::kLenientOnly},
      {"[1" + std::string(400, '0') + "]", Array{kInfinity}, ReadBy::kLenientOnly},
      {"[1e400,-1e400]", Array{kInfinity, -kInfinity}, ReadBy::kLenientOnly},
      {"[1e99999999999999999999]", Array{kInfinity}, ReadBy::kLenientOnly},
  };
  for (const AcceptedCase& expected : cases)
    expectAccepted(expected);
}

TEST(JSONReadersTest, OfEqualKeysTheFirstWinsAtEveryDepth) {
  const AcceptedCase cases[] = {
      {R"({"a":1,"a":2})", Object{{"a", 1}}},
      {R"({"a":1,"b":2,"a":3,"c":4,"b":5,"a":6})", Object{{"a", 1}, {"b", 2}, {"c", 4}}},
      {R"({"a":null,"a":1})", Object{{"a", nullptr}}},
      {R"({"a":1,"\u0061":2,"A":3})", Object{{"a", 1}, {"A", 3}}},
      {R"([{"x":{"a":1,"a":{"a":2}}}])", Array{Object{{"x", Object{{"a", 1}}}}}},
      {R"({"":1,"":2})", Object{{"", 1}}},
      {R"({"a\u0000b":1,"a":2,"a\u0000b":3})", Object{{"a\0b"s, 1}, {"a", 2}}},
  };
  for (const AcceptedCase& expected : cases)
    expectAccepted(expected);
}

TEST(JSONReadersTest, BuildOfTheOutermostObjectOnlyTheNamedMembers) {
  constexpr std::string_view kNames[] = {"a", "b"};
  const AcceptedCase cases[] = {
      {"{}", Object{}},
      {R"({"c":1})", Object{}},
      {R"({"c":1,"b":[2],"a":3,"aa":4,"":5})", Object{{"b", Array{2}}, {"a", 3}}},
      {R"({"a":1,"c":2,"\u0061":3,"c":4})", Object{{"a", 1}}},
      {R"({"a":{"c":1,"a":2},"c":{"a":3}})", Object{{"a", Object{{"c", 1}, {"a", 2}}}}},
      {R"([{"c":1}])", Array{Object{{"c", 1}}}},
  };
  for (const auto& [body, value, readBy] : cases) {
    JSONFailure failure;
    EXPECT_TRUE(readPlainJSON(bytesOf(body), kNames) == value) << body;
    EXPECT_TRUE(readLenientJSON(bytesOf(body), &failure, kNames) == value) << body;
  }
}

TEST(JSONReadersTest, CheckTheMembersThatTheyDoNotBuild) {
  constexpr std::string_view kNames[] = {"a"};
  for (const char* body :
       {R"({"a":1,"c":nil})", R"({"a":1,"c":01})", "{\"a\":1,\"c\":\"\xFF\"}", R"({"c":[1,{]})"}) {
    JSONFailure failure;
    EXPECT_FALSE(readPlainJSON(bytesOf(body), kNames)) << body;
    EXPECT_FALSE(readLenientJSON(bytesOf(body), &failure, kNames)) << body;
  }
}

TEST(JSONReadersTest, OfManyEqualKeysTheFirstWinsToo) {
  std::string body = "{";
  Object expected;
  for (int i = 0; i < 300; ++i) {
    const std::string key = std::to_string((i * 7) % 100);
    body += (i > 0 ? ",\"" : "\"") + key + "\":" + std::to_string(i);
    if (i < 100) expected.emplace_back(key, i);
  }
  expectAccepted({body + "}", expected});
}

TEST(JSONReadersTest, KeysAreComparedInLessThanQuadraticTime) {
  for (const bool areEqual : {false, true}) {
    std::string body = "{";
    std::size_t count = 0;
    while (body.size() < (1 << 20)) {
      body += count == 0 ? "\"" : ",\"";
      body += (areEqual ? "1" : std::to_string(count)) + "\":0";
      ++count;
    }
    body += "}";
    const auto start = std::chrono::steady_clock::now();
    JSONFailure failure;
    const auto plain = readPlainJSON(bytesOf(body));
    const auto lenient = readLenientJSON(bytesOf(body), &failure);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    ASSERT_TRUE(plain && lenient);
    EXPECT_EQ(plain->as<Object>()->size(), areEqual ? 1 : count);
    EXPECT_TRUE(*plain == *lenient);
  }
}

TEST(JSONReadersTest, AcceptATrailingComma) {
  const AcceptedCase cases[] = {
      {"[1,]", Array{1}, ReadBy::kLenientOnly},
      {"[1 , \n]", Array{1}, ReadBy::kLenientOnly},
      {R"({"a":1,})", Object{{"a", 1}}, ReadBy::kLenientOnly},
      {R"([{"a":[[],],},])", Array{Object{{"a", Array{Value(Array{})}}}}, ReadBy::kLenientOnly},
  };
  for (const AcceptedCase& expected : cases)
    expectAccepted(expected);
}

TEST(JSONReadersTest, ReadEveryUnicodeEncodingWithAndWithoutAMark) {
  const std::string text = "{\"k\":\"\xC3\xA9\xF0\x9F\x98\x80\"}";
  const Value value(Object{{"k", "\xC3\xA9\xF0\x9F\x98\x80"}});
  expectAccepted({text, value});
  expectAccepted({"\xEF\xBB\xBF" + text, value, ReadBy::kLenientOnly});
  for (const std::size_t unitSize : {std::size_t{2}, std::size_t{4}}) {
    for (const bool isBigEndian : {false, true}) {
      const std::string mark = encoded("\xEF\xBB\xBF", unitSize, isBigEndian);
      expectAccepted({encoded(text, unitSize, isBigEndian), value, ReadBy::kLenientOnly});
      expectAccepted({mark + encoded(text, unitSize, isBigEndian), value, ReadBy::kLenientOnly});
      expectAccepted({encoded("[]", unitSize, isBigEndian), Array{}, ReadBy::kLenientOnly});
    }
  }
}

TEST(JSONReadersTest, ReadNestingUpTo512) {
  Value arrays = Array{};
  for (int i = 1; i < 512; ++i)
    arrays = Array{std::move(arrays)};
  expectAccepted({nestedArrays(512), arrays});
  Value numbers = Array{1};
  for (int i = 1; i < 512; ++i)
    numbers = Array{std::move(numbers)};
  expectAccepted({repeated("[", 512) + "1" + repeated("]", 512), numbers, ReadBy::kLenientOnly});
  Value objects = Object{};
  for (int i = 1; i < 512; ++i)
    objects = Object{{"k", std::move(objects)}};
  expectAccepted({repeated("{\"k\":", 511) + "{}" + repeated("}", 511), objects});
}

struct RejectedCase {
  std::string body;
  std::string_view reason;
  std::size_t byteOffset;
};

void expectRejected(const RejectedCase& expected) {
  SCOPED_TRACE(testing::PrintToString(expected.body.substr(0, 200)));
  EXPECT_FALSE(readPlainJSON(bytesOf(expected.body)).has_value());
  JSONFailure failure;
  EXPECT_FALSE(readLenientJSON(bytesOf(expected.body), &failure).has_value());
  EXPECT_EQ(failure.reason, expected.reason);
  EXPECT_EQ(failure.byteOffset, expected.byteOffset);
}

constexpr std::string_view kNothing = "there is no value";
constexpr std::string_view kNoContainer = "the value is neither an array nor an object";
constexpr std::string_view kTrailing = "there is text after the value";
constexpr std::string_view kCutShort = "the text ends too early";
constexpr std::string_view kCutInString = "the text ends in a string";
constexpr std::string_view kNoKey = "a key is missing";
constexpr std::string_view kNoColon = "a colon is missing";
constexpr std::string_view kNoComma = "a comma is missing";
constexpr std::string_view kBadValue = "a value is missing or malformed";
constexpr std::string_view kLeadingZero = "a number begins with 0";
constexpr std::string_view kNoDigit = "a digit is missing";
constexpr std::string_view kControl = "a string has a control character";
constexpr std::string_view kBadEscape = "an escape is malformed";
constexpr std::string_view kLoneSurrogate = "an escaped surrogate is alone";
constexpr std::string_view kNotUnicode = "the text is not well-formed Unicode";
constexpr std::string_view kTooDeep = "the nesting is too deep";

TEST(JSONReadersTest, RefuseTextWithoutOneArrayOrObject) {
  const RejectedCase cases[] = {
      {"", kNothing, 0},
      {" \n", kNothing, 2},
      {"\xEF\xBB\xBF", kNothing, 3},
      {"1", kNoContainer, 0},
      {" \"text\"", kNoContainer, 1},
      {"null", kNoContainer, 0},
      {"true", kNoContainer, 0},
      {"<html>", kNoContainer, 0},
      {"\0"s, kNoContainer, 0},
      {"[] x", kTrailing, 3},
      {"{}{}", kTrailing, 2},
      {"[],", kTrailing, 2},
      {"[]]", kTrailing, 2},
      {"[]\0"s, kTrailing, 2},
      {"\xEF\xBB\xBF\xEF\xBB\xBF[]", kNoContainer, 3},
  };
  for (const RejectedCase& expected : cases)
    expectRejected(expected);
}

TEST(JSONReadersTest, RefuseBrokenStructure) {
  const RejectedCase cases[] = {
      {"[", kCutShort, 1},          {"[1", kCutShort, 2},       {"[1,", kCutShort, 3},
      {"[[]", kCutShort, 3},        {"{", kNoKey, 1},           {"{\"a\"", kNoColon, 4},
      {"{\"a\":", kCutShort, 5},    {"{\"a\":1", kCutShort, 6}, {"{\"a\":1,", kNoKey, 7},
      {"[1}", kNoComma, 2},         {"{\"a\":1]", kNoComma, 6}, {"{]", kNoKey, 1},
      {"[}", kBadValue, 1},         {"[,]", kBadValue, 1},      {"[,1]", kBadValue, 1},
      {"[1,,2]", kBadValue, 3},     {"[1,,]", kBadValue, 3},    {"{,}", kNoKey, 1},
      {"{\"a\":1,,}", kNoKey, 7},   {"{\"a\":}", kBadValue, 5}, {"{\"a\" 1}", kNoColon, 5},
      {"{\"a\",1}", kNoColon, 4},   {"{a:1}", kNoKey, 1},       {"{1:1}", kNoKey, 1},
      {"{'a':1}", kNoKey, 1},       {"[1 2]", kNoComma, 3},     {"[\"a\"\"b\"]", kNoComma, 4},
      {"[1:2]", kNoComma, 2},       {"[/**/]", kBadValue, 1},   {"[\v]", kBadValue, 1},
      {"[\xC2\xA0]", kBadValue, 1},
  };
  for (const RejectedCase& expected : cases)
    expectRejected(expected);
}

TEST(JSONReadersTest, RefuseMalformedNumbersAndWords) {
  const RejectedCase cases[] = {
      {"[01]", kLeadingZero, 2}, {"[-01]", kLeadingZero, 3},   {"[00]", kLeadingZero, 2},
      {"[NaN]", kBadValue, 1},   {"[Infinity]", kBadValue, 1}, {"[-Infinity]", kBadValue, 1},
      {"[-]", kBadValue, 1},     {"[+1]", kBadValue, 1},       {"[.5]", kBadValue, 1},
      {"[5.]", kNoDigit, 3},     {"[5.e1]", kNoDigit, 3},      {"[1e]", kNoDigit, 3},
      {"[1e+]", kNoDigit, 4},    {"[1e-+1]", kNoDigit, 4},     {"[0x10]", kNoComma, 2},
      {"[1a]", kNoComma, 2},     {"[1e5.5]", kNoComma, 4},     {"[tru]", kBadValue, 1},
      {"[True]", kBadValue, 1},  {"[nul", kBadValue, 1},       {"[truefalse]", kNoComma, 5},
      {"[null0]", kNoComma, 5},  {"[1", kCutShort, 2},         {"[-", kBadValue, 1},
      {"[1.", kNoDigit, 3},      {"[1e", kNoDigit, 3},
  };
  for (const RejectedCase& expected : cases)
    expectRejected(expected);
}

TEST(JSONReadersTest, RefuseMalformedStrings) {
  const RejectedCase cases[] = {
      {"[\"a", kCutInString, 3},
      {"[\"a\\\"]", kCutInString, 6},
      {"{\"a", kCutInString, 3},
      {"[\"a\nb\"]", kControl, 3},
      {"[\"\t\"]", kControl, 2},
      {"[\"\0\"]"s, kControl, 2},
      {"[\"\x1F\"]", kControl, 2},
      {"[\"\\", kBadEscape, 2},
      {R"(["a\x41"])", kBadEscape, 3},
      {R"(["\'"])", kBadEscape, 2},
      {"[\"\\\n\"]", kBadEscape, 2},
      {"[\"\\\0\"]"s, kBadEscape, 2},
      {R"(["\U0041"])", kBadEscape, 2},
      {R"(["\u"])", kBadEscape, 2},
      {R"(["\u41"])", kBadEscape, 2},
      {R"(["\u004"])", kBadEscape, 2},
      {R"(["\u004g"])", kBadEscape, 2},
      {R"(["\u-041"])", kBadEscape, 2},
      {R"(["\u 041"])", kBadEscape, 2},
      {"[\"\\u004", kBadEscape, 2},
      {R"(["\ud800"])", kLoneSurrogate, 2},
      {R"(["\udc00"])", kLoneSurrogate, 2},
      {R"(["\udfff\ud800"])", kLoneSurrogate, 2},
      {R"(["\ud800\ud800"])", kLoneSurrogate, 2},
      {R"(["\ud800\u0041"])", kLoneSurrogate, 2},
      {R"(["\ud800x"])", kLoneSurrogate, 2},
      {R"(["\ud800\n"])", kLoneSurrogate, 2},
      {R"(["a\udbff"])", kLoneSurrogate, 3},
      {R"(["\ud83d\ude00\ude00"])", kLoneSurrogate, 14},
      {R"(["\ud800\uzzzz"])", kBadEscape, 8},
      {R"({"\ud800":1})", kLoneSurrogate, 2},
  };
  for (const RejectedCase& expected : cases)
    expectRejected(expected);
}

TEST(JSONReadersTest, RefuseTextThatIsNotUnicode) {
  const std::string surrogate("\x00\xD8", 2);
  const RejectedCase cases[] = {
      {"[\"\xFF\"]", kNotUnicode, 2},
      {"[\"\xC0\x80\"]", kNotUnicode, 2},
      {"[\"\xED\xA0\x80\"]", kNotUnicode, 2},
      {"[\"\xF4\x90\x80\x80\"]", kNotUnicode, 2},
      {"[\"a\xC3\"]", kNotUnicode, 3},
      {"[]\xC3", kNotUnicode, 2},
      {"\xEF\xBB\xBF[\"\xFF\"]", kNotUnicode, 5},
      {encoded("[\"\xC3\xA9", 2, false) + surrogate + encoded("\"]", 2, false), kNotUnicode, 6},
      {encoded("[]", 2, true) + "\0"s, kNotUnicode, 4},
      {"\xFE\xFF"s + encoded("[]", 2, true) + "\0"s, kNotUnicode, 6},
      {encoded("[\"\xC3\xA9", 4, false) + "\0\xD8\0\0"s, kNotUnicode, 12},
      {encoded("[\"", 4, true) + "\0\x11\0\0"s, kNotUnicode, 8},
      {encoded("[]", 4, true) + "\0\0"s, kNotUnicode, 8},
  };
  for (const RejectedCase& expected : cases)
    expectRejected(expected);
}

TEST(JSONReadersTest, OffsetsCountTheBytesOfTheBodyInEveryEncoding) {
  const std::string text = "[\"\xC3\xA9\xF0\x9F\x98\x80\" 1]";
  expectRejected({text, kNoComma, 10});
  expectRejected({"\xEF\xBB\xBF" + text, kNoComma, 13});
  for (const bool isBigEndian : {false, true}) {
    expectRejected({encoded(text, 2, isBigEndian), kNoComma, 2 * 7});
    expectRejected({encoded("\xEF\xBB\xBF" + text, 2, isBigEndian), kNoComma, 2 + 2 * 7});
    expectRejected({encoded(text, 4, isBigEndian), kNoComma, 4 * 6});
    expectRejected({encoded("\xEF\xBB\xBF" + text, 4, isBigEndian), kNoComma, 4 + 4 * 6});
  }
}

TEST(JSONReadersTest, RefuseDeeperNesting) {
  expectRejected({nestedArrays(513), kTooDeep, 512});
  expectRejected({repeated("[", 513) + "1" + repeated("]", 513), kTooDeep, 512});
  expectRejected({nestedArrays(10000), kTooDeep, 512});
  expectRejected({std::string(1 << 20, '['), kTooDeep, 512});
  expectRejected({repeated("{\"k\":", 513), kTooDeep, 5 * 512});
  expectRejected({repeated("[{\"k\":", 257), kTooDeep, 6 * 256});
}

}  // namespace
}  // namespace qvr
