#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string>

#include "QVROAuth2Client/platform/URLSession.h"

namespace qvr {
namespace {

URLRequest makeRequest() {
  return URLRequest(*URL::URLWithString("https://h/token"));
}

TEST(HTTPMessagesTest, RequestStartsAsAGetWithoutHeadersOrBody) {
  const URLRequest request = makeRequest();
  EXPECT_EQ(request.url.absoluteString(), "https://h/token");
  EXPECT_EQ(request.HTTPMethod, "GET");
  EXPECT_TRUE(request.headers.empty());
  EXPECT_TRUE(request.HTTPBody.empty());
}

TEST(HTTPMessagesTest, HeadersKeepTheOrderInWhichTheyWereAdded) {
  URLRequest request = makeRequest();
  request.addValue("application/json", "Accept");
  request.addValue("application/x-www-form-urlencoded; charset=utf-8", "Content-Type");
  const HTTPHeaders expected = {
      {"Accept", "application/json"},
      {"Content-Type", "application/x-www-form-urlencoded; charset=utf-8"},
  };
  EXPECT_EQ(request.headers, expected);
}

TEST(HTTPMessagesTest, AddingToAFieldAppendsAfterAComma) {
  URLRequest request = makeRequest();
  request.addValue("a", "Accept");
  request.addValue("x", "Other");
  request.addValue("b", "ACCEPT");
  const HTTPHeaders expected = {{"Accept", "a,b"}, {"Other", "x"}};
  EXPECT_EQ(request.headers, expected);
}

TEST(HTTPMessagesTest, FieldsAreFoundWithoutRegardToCase) {
  URLRequest request = makeRequest();
  request.addValue("v", "X-Field[");
  EXPECT_EQ(request.valueForHTTPHeaderField("x-fIELD["), "v");
  EXPECT_EQ(request.valueForHTTPHeaderField("x-field{"), std::nullopt);
  EXPECT_EQ(request.valueForHTTPHeaderField("X-Fiel"), std::nullopt);
  EXPECT_EQ(request.valueForHTTPHeaderField(""), std::nullopt);
  request.addValue("", "Empty");
  EXPECT_EQ(request.valueForHTTPHeaderField("empty"), "");
}

const std::map<std::int64_t, std::string> kStatusTexts = {
    {100, "continue"},
    {101, "switching protocols"},
    {200, "no error"},
    {201, "created"},
    {202, "accepted"},
    {203, "non-authoritative information"},
    {204, "no content"},
    {205, "reset content"},
    {206, "partial content"},
    {300, "multiple choices"},
    {301, "moved permanently"},
    {302, "found"},
    {303, "see other"},
    {304, "not modified"},
    {305, "needs proxy"},
    {307, "temporarily redirected"},
    {400, "bad request"},
    {401, "unauthorized"},
    {402, "payment required"},
    {403, "forbidden"},
    {404, "not found"},
    {405, "method not allowed"},
    {406, "unacceptable"},
    {407, "proxy authentication required"},
    {408, "request timed out"},
    {409, "conflict"},
    {410, "no longer exists"},
    {411, "length required"},
    {412, "precondition failed"},
    {413, "request too large"},
    {414, "requested URL too long"},
    {415, "unsupported media type"},
    {416, "requested range not satisfiable"},
    {417, "expectation failed"},
    {500, "internal server error"},
    {501, "unimplemented"},
    {502, "bad gateway"},
    {503, "service unavailable"},
    {504, "gateway timed out"},
    {505, "unsupported version"},
};

// What a code has that is not in the table.
std::string textOfClass(std::int64_t code) {
  if (code >= 100 && code <= 199) return "informational";
  if (code >= 200 && code <= 299) return "success";
  if (code >= 300 && code <= 399) return "redirected";
  if (code >= 400 && code <= 499) return "client error";
  return "server error";
}

TEST(HTTPMessagesTest, EveryStatusHasItsTextOrThatOfItsClass) {
  for (std::int64_t code = -700; code <= 1200; ++code) {
    const auto known = kStatusTexts.find(code);
    EXPECT_EQ(HTTPURLResponse::localizedStringForStatusCode(code),
              known != kStatusTexts.end() ? known->second : textOfClass(code))
        << code;
  }
}

TEST(HTTPMessagesTest, StatusesFarOutsideTheClassesAreServerErrors) {
  for (const std::int64_t code :
       {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(HTTPURLResponse::localizedStringForStatusCode(code), "server error") << code;
  }
}

}  // namespace
}  // namespace qvr
