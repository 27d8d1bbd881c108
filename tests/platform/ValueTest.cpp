#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <locale>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Value.h"

namespace qvr {
namespace {

using Array = Value::Array;
using Object = Value::Object;

URL makeURL(const char* text) {
  return *URL::URLWithString(text);
}

// One value of every type, in the order of the types.
std::vector<Value> valuesOfEveryType() {
  return {nullptr, true,       std::int64_t{-1}, std::uint64_t{1}, 1.5,
          "text",  Data{1, 2}, makeURL("s://h"), Array{1},         Object{{"k", 1}}};
}

TEST(ValueTest, IsNullUntilItIsGivenAValue) {
  EXPECT_TRUE(Value().isNull());
  EXPECT_TRUE(Value(nullptr).isNull());
  EXPECT_FALSE(Value(false).isNull());
  EXPECT_FALSE(Value("").isNull());
}

TEST(ValueTest, TextIsAbsentForAnythingButAString) {
  EXPECT_EQ(Value("a").text(), "a");
  EXPECT_EQ(Value("").text(), "");
  for (const Value& value : valuesOfEveryType()) {
    if (value.as<std::string>() == nullptr) {
      EXPECT_EQ(value.text(), std::nullopt) << value.description();
    }
  }
}

TEST(ValueTest, AsAnswersOnlyTheTypeThatIsThere) {
  const Value value(7);
  ASSERT_NE(value.as<std::int64_t>(), nullptr);
  EXPECT_EQ(*value.as<std::int64_t>(), 7);
  EXPECT_EQ(value.as<double>(), nullptr);
  EXPECT_EQ(value.as<bool>(), nullptr);
  EXPECT_EQ(value.as<std::string>(), nullptr);
}

TEST(ValueTest, NumbersAndBooleansReadAsDoubles) {
  EXPECT_EQ(Value(3600).numberValue(), 3600);
  EXPECT_EQ(Value(std::int64_t{-5}).numberValue(), -5);
  EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).numberValue(), 18446744073709551615.0);
  EXPECT_EQ(Value(1.25).numberValue(), 1.25);
  EXPECT_EQ(Value(true).numberValue(), 1);
  EXPECT_EQ(Value(false).numberValue(), 0);
}

TEST(ValueTest, NonNumbersHaveNoNumber) {
  for (const Value& value :
       {Value(), Value(Data{'1'}), Value(makeURL("1")), Value(Array{1}), Value(Object{{"1", 1}})}) {
    EXPECT_EQ(value.numberValue(), std::nullopt) << value.description();
  }
}

TEST(ValueTest, NumbersThatAreNotFiniteAreKeptOut) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double number : {kInfinity, -kInfinity, std::nan("")}) {
    EXPECT_EQ(Value(number).numberValue(), std::nullopt) << number;
  }
  for (const char* text : {"1e400", "-1e400", "1e99999999999999999999", "179769313486231590e300"}) {
    EXPECT_EQ(Value(text).numberValue(), std::nullopt) << text;
  }
}

struct NumericTextCase {
  std::string text;
  double number;
};

TEST(ValueTest, NumericTextIsReadUpToWhereItStopsBeingANumber) {
  const NumericTextCase cases[] = {
      {"3600", 3600},
      {" \t\n\v\f\r3600", 3600},
      {"+3600", 3600},
      {"-3600", -3600},
      {"36.5", 36.5},
      {".5", 0.5},
      {"5.", 5},
      {"1e3", 1000},
      {"1E+3", 1000},
      {"25e-1", 2.5},
      {"1e", 1},
      {"1e+", 1},
      {"3600s", 3600},
      {"3600 7", 3600},
      {"1,5", 1},
      {"1.2.3", 1.2},
      {"0x10", 0},
      {"007", 7},
      {std::string("8\0"
                   "9",
                   3),
       8},
      {"1e-400", 0},
      {"0e99999999999999999999", 0},
      {"1e-99999999999999999999", 0},
      {"0." + std::string(400, '0') + "5e400", 0.5},
      {"1" + std::string(400, '0') + "e-400", 1},
      {"1.7976931348623157e308", std::numeric_limits<double>::max()},
      {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
  };
  for (const NumericTextCase& c : cases)
    EXPECT_EQ(Value(c.text).numberValue(), c.number) << c.text;
}

TEST(ValueTest, TextWithoutDigitsReadsAsZero) {
  for (const char* text : {"", " ", "abc", "-", "+", ".", "-.", "e5", "+-5", "-+5", "--5", "- 5",
                           "inf", "-infinity", "nan",
                           "\xC2\xA0"
                           "5"}) {
    EXPECT_EQ(Value(text).numberValue(), 0.0) << text;
  }
}

struct CommaAsPoint : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(ValueTest, NumbersReadAndPrintTheSameInEveryLocale) {
  const std::locale previous =
      std::locale::global(std::locale(std::locale::classic(), new CommaAsPoint));
  const auto number = Value("1234.5").numberValue();
  const std::string description = Value(Array{1234.5, 1234567}).description();
  std::locale::global(previous);
  EXPECT_EQ(number, 1234.5);
  EXPECT_EQ(description, "(1234.5, 1234567)");
}

TEST(ValueTest, FindsTheFirstMemberWithAKey) {
  const Value object(Object{{"a", 1}, {"", 2}, {"a", 3}});
  ASSERT_NE(object.find("a"), nullptr);
  EXPECT_EQ(*object.find("a"), Value(1));
  ASSERT_NE(object.find(""), nullptr);
  EXPECT_EQ(*object.find(""), Value(2));
  EXPECT_EQ(object.find("A"), nullptr);
  EXPECT_EQ(Value(Array{"a"}).find("a"), nullptr);
  EXPECT_EQ(Value("a").find("a"), nullptr);
  EXPECT_EQ(Value().find("a"), nullptr);
}

struct DescriptionCase {
  Value value;
  const char* description;
};

TEST(ValueTest, DescribesEveryType) {
  const DescriptionCase cases[] = {
      {nullptr, "<null>"},
      {true, "1"},
      {false, "0"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {0.1, "0.1"},
      {3600.0, "3600"},
      {-2.2250738585072014e-308, "-2.2250738585072014e-308"},
      {"as it is, \"quoted\"", "as it is, \"quoted\""},
      {"", ""},
      {Array{}, "()"},
      {Array{1, "b", nullptr}, "(1, b, <null>)"},
      {Object{}, "{}"},
      {Object{{"k", "v"}}, "{k = v}"},
      {Object{{"k", Array{1}}, {"l", Object{{"m", false}}}}, "{k = (1), l = {m = 0}}"},
  };
  for (const DescriptionCase& c : cases)
    EXPECT_EQ(c.value.description(), c.description);
}

TEST(ValueTest, DescriptionKeepsBuffersAndQueriesSecret) {
  const std::string secret = "s3cret";
  EXPECT_EQ(Value(Data(secret.begin(), secret.end())).description(), "{length = 6}");
  EXPECT_EQ(Value(Data()).description(), "{length = 0}");
  EXPECT_EQ(Value(makeURL("m.x://auth/p?code=s3cret#s3cret")).description(), "m.x://auth/p");
  EXPECT_EQ(Value(makeURL("m.x://auth#s3cret?s3cret")).description(), "m.x://auth");
  const Value nested(Array{Data{1}, makeURL("s://h?code=s3cret"), Object{{"d", Data{1, 2}}}});
  EXPECT_EQ(nested.description(), "({length = 1}, s://h, {d = {length = 2}})");
}

TEST(ValueTest, DescriptionOfDeepNestingIsCutShort) {
  Value deep = "bottom";
  for (int i = 0; i < 500; ++i)
    deep = Array{std::move(deep)};
  EXPECT_EQ(deep.description(), "(((((((((...)))))))))");
  Value object = 1;
  for (int i = 0; i < 500; ++i)
    object = Object{{"k", std::move(object)}};
  EXPECT_EQ(object.description().find("..."), 9 * std::string("{k = ").size());
}

TEST(ValueTest, ValuesAreEqualWhenTypeAndContentAre) {
  const std::vector<Value> values = valuesOfEveryType();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < values.size(); ++j) {
      EXPECT_EQ(values[i] == values[j], i == j) << i << " " << j;
    }
  }
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_NE(Value(""), Value());
}

}  // namespace
}  // namespace qvr
