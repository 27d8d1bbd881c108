// JSON that holds what it is given, whatever that is.
#include <gtest/gtest.h>

#include "host/Console.h"
#include "host/JSONWriting.h"
#include "tests/host/ParsedJSON.h"

namespace host_test {
namespace {

using namespace std::string_literals;

// What a reader gets of the string.
qvr::Text readBack(const std::string& text) {
  return memberOf(parsedJSON("{\"text\":" + host::jsonString(text) + "}"), "text").text();
}

TEST(JSONString, IsReadBackAsItWas) {
  for (const std::string& text :
       {""s, "plain"s, "\"quoted\" \\ / \\\\\""s, "caf\u00e9 \u4f60 \U0001f600"s,
        "line\nfeed\r\ttab\b\f"s, "\x01\x1f\x7f"s, "nul\0nul"s, "c1 \u0080\u009f \u00a0"s}) {
    EXPECT_EQ(readBack(text), text) << host::jsonString(text);
  }
}

TEST(JSONString, HoldsNoCharacterThatMovesACursor) {
  EXPECT_EQ(host::jsonString("\x1b[2J\n"), R"("\u001b[2J\u000a")");
  EXPECT_EQ(host::jsonString("\x7f\u0080\u009f"), R"("\u007f\u0080\u009f")");
  EXPECT_EQ(host::jsonString("\u00a0"), "\"\u00a0\"");
}

TEST(JSONString, IsUTF8EvenIfTheTextIsNot) {
  for (const char* const text :
       {"\xff", "a\xc2", "\xc2\x41", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xc0\x80", "\x9b"}) {
    EXPECT_TRUE(host::isUTF8(host::jsonString(text))) << text;
    EXPECT_TRUE(readBack(text));
  }
  EXPECT_EQ(readBack("a\xff\"z"), "a?\"z");
}

TEST(JSONValues, AreNullWhenAbsent) {
  EXPECT_EQ(host::jsonStringOrNull(std::nullopt), "null");
  EXPECT_EQ(host::jsonStringOrNull(""), "\"\"");
  EXPECT_EQ(host::jsonNumber(std::nullopt), "null");
  EXPECT_EQ(host::jsonNumber(-5), "-5");
  EXPECT_EQ(host::jsonBoolean(true), "true");
  EXPECT_EQ(host::jsonBoolean(false), "false");
}

TEST(JSONValues, AreJoinedByCommas) {
  EXPECT_EQ(host::jsonArray({}), "[]");
  EXPECT_EQ(host::jsonStrings({"", "b\"", "c"}), R"(["","b\"","c"])");
  EXPECT_EQ(host::jsonObject({}), "{}");
  EXPECT_EQ(host::jsonObject({{"a\"", "1"}, {"b", host::jsonArray({"2", "{}"})}}),
            R"({"a\"":1,"b":[2,{}]})");
}

}  // namespace
}  // namespace host_test
