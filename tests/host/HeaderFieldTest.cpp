// Fields of an answer.
#include <gtest/gtest.h>

#include "host/HeaderField.h"

namespace host {
namespace {

TEST(HeaderFieldTest, IsTheFirstOfItsNameInAnyCase) {
  qvr::HTTPURLResponse response;
  response.headers = {{"Date", "today"}, {"RETRY-after", "1"}, {"Retry-After", "2"}};
  EXPECT_EQ(headerField(response, "retry-After"), "1");
  EXPECT_EQ(headerField(response, "Date"), "today");
  EXPECT_EQ(headerField(response, "Dat"), std::nullopt);
}

TEST(HeaderFieldTest, HasNoWhiteSpaceAroundIt) {
  qvr::HTTPURLResponse response;
  response.headers = {{"A", " \tone two\t "}, {"B", " \t"}, {"C", ""}};
  EXPECT_EQ(headerField(response, "A"), "one two");
  EXPECT_EQ(headerField(response, "B"), "");
  EXPECT_EQ(headerField(response, "C"), "");
}

}  // namespace
}  // namespace host
