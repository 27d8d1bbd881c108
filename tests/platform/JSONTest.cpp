#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "src/platform/JSONMembers.h"
#include "tests/platform/BytesOf.h"

namespace qvr {
namespace {

using Array = Value::Array;
using Object = Value::Object;

TEST(JSONTest, ReadsATokenResponse) {
  ErrorPtr error;
  const auto value = JSONObjectWithData(
      bytesOf(R"({"access_token":"at","expires_in":3599,"scope":"a b","ext":[1.5,null]})"), &error);
  ASSERT_TRUE(value.has_value());
  EXPECT_EQ(*value, Value(Object{{"access_token", "at"},
                                 {"expires_in", 3599},
                                 {"scope", "a b"},
                                 {"ext", Array{1.5, nullptr}}}));
  EXPECT_EQ(error, nullptr);
}

TEST(JSONTest, ReadsWhatOnlyTheLenientReaderAccepts) {
  ErrorPtr error;
  const auto value = JSONObjectWithData(bytesOf("\xEF\xBB\xBF{\"a\":1e400,}"), &error);
  ASSERT_TRUE(value.has_value());
  ASSERT_NE(value->find("a"), nullptr);
  EXPECT_NE(value->find("a")->as<double>(), nullptr);
  EXPECT_EQ(value->find("a")->numberValue(), std::nullopt);
  EXPECT_EQ(error, nullptr);
}

struct ErrorCase {
  std::string_view body;
  const char* sentence;
  std::int64_t index;
};

TEST(JSONTest, ErrorNamesTheReasonAndTheByteOffset) {
  const ErrorCase cases[] = {
      {"", "The JSON text cannot be read: there is no value at byte offset 0.", 0},
      {"<html></html>",
       "The JSON text cannot be read: the value is neither an array nor an object at byte offset "
       "0.",
       0},
      {"\"scalar\"",
       "The JSON text cannot be read: the value is neither an array nor an object at byte offset "
       "0.",
       0},
      {"{\"a\":1 \"b\"}", "The JSON text cannot be read: a comma is missing at byte offset 7.", 7},
      {"[\"\xFF\"]",
       "The JSON text cannot be read: the text is not well-formed Unicode at byte offset 2.", 2},
  };
  for (const ErrorCase& expected : cases) {
    SCOPED_TRACE(expected.body);
    ErrorPtr error;
    EXPECT_FALSE(JSONObjectWithData(bytesOf(expected.body), &error).has_value());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(error->code(), 3840);
    ASSERT_NE(error->userInfo(), nullptr);
    EXPECT_EQ(*error->userInfo(), (Object{{"NSDebugDescription", expected.sentence},
                                          {"NSJSONSerializationErrorIndex", expected.index}}));
  }
}

TEST(JSONTest, ErrorRepeatsNothingOfTheBody) {
  for (const std::string_view body : {R"({"access_token":"s3cret" x)", R"({"access_token":s3cret})",
                                      R"({s3cret:1})", "s3cret", R"({"s3cret)", R"(["\s3cret"])"}) {
    ErrorPtr error;
    EXPECT_FALSE(JSONObjectWithData(bytesOf(body), &error).has_value());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->description().find("s3cret"), std::string::npos) << error->description();
  }
}

TEST(JSONTest, FailureWithoutAnOutParameterIsNothing) {
  EXPECT_FALSE(JSONObjectWithData(bytesOf("{"), nullptr).has_value());
}

TEST(JSONTest, TenThousandNestedArraysAreRefused) {
  ErrorPtr error;
  EXPECT_FALSE(JSONObjectWithData(bytesOf(std::string(10000, '[')), &error).has_value());
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(error->is(NSCocoaErrorDomain, NSPropertyListReadCorruptError));
}

TEST(JSONMembersTest, ReadsTheNamedMembersByWhicheverReaderAcceptsTheBody) {
  constexpr std::string_view kNames[] = {"a"};
  ErrorPtr error;
  for (const char* body : {R"({"b":1,"a":2})", R"({"b":1,"a":2,})"}) {
    EXPECT_EQ(JSONMembersWithData(bytesOf(body), kNames, &error), Value(Object{{"a", 2}})) << body;
  }
  EXPECT_EQ(error, nullptr);
}

TEST(JSONMembersTest, FailsAsJSONObjectWithDataDoes) {
  ErrorPtr error;
  ErrorPtr membersError;
  EXPECT_FALSE(JSONObjectWithData(bytesOf(R"({"b":})"), &error));
  EXPECT_FALSE(JSONMembersWithData(bytesOf(R"({"b":})"), {}, &membersError));
  ASSERT_TRUE(error && membersError && error->userInfo() && membersError->userInfo());
  EXPECT_EQ(membersError->code(), error->code());
  EXPECT_EQ(*membersError->userInfo(), *error->userInfo());
}

}  // namespace
}  // namespace qvr
