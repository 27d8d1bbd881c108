// Randomly broken bodies, with a fixed seed: the two JSON readers against each other.
#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "src/platform/JSONReaders.h"
#include "tests/platform/BytesOf.h"

namespace qvr {
namespace {

// Bodies that between them reach every rule; mutation breaks and joins them.
const std::string_view kSeeds[] = {
    R"({"access_token":"abc","expires_in":3600,"scope":"a b","token_type":"Bearer"})",
    R"({"error":"invalid_grant","error_description":"caf\u00e9 \ud83d\ude00","a":null})",
    R"([1,-2.5e3,1e400,18446744073709551615,9223372036854775808,-0.0,0.1,[],{}])",
    R"({"a":1,"a":2,"b":{"a":1,"b":[true,false,null],"a":3}})",
    R"(["\"\\\/\b\f\n\r\t\u0000", "plain", ""])",
    "[\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"]",
    "[[[[[[1]]]],2]]",
    "{ \"k\" : [ 0.000001 , 123456789012345678 , 4.9e-324 ] }",
};

const std::string_view kPieces[] = {
    "[",
    "]",
    "{",
    "}",
    ",",
    ":",
    "\"",
    "\\",
    "\\u",
    "\\ud800",
    "\\udc00",
    "0",
    "9",
    "-",
    "+",
    ".",
    "e",
    "E5",
    " ",
    "\n",
    "true",
    "null",
    "\x01",
    "\xC3",
    "\xA9",
    "\xFF",
    "\"a\":",
    "1e308",
    "12345678901234567890",
    "\\n",
    ",{}",
};

class Mutator {
 public:
  std::string body() {
    std::string text(kSeeds[below(std::size(kSeeds))]);
    for (std::size_t left = below(4); left > 0; --left)
      mutate(text);
    return text;
  }

 private:
  // The generator itself is specified to the bit; the distributions of the library are not.
  std::size_t below(std::size_t bound) { return generator_() % bound; }

  void mutate(std::string& text) {
    const std::size_t place = below(text.size() + 1);
    const std::size_t length = below(4);
    switch (below(4)) {
      case 0:
        text.insert(place, kPieces[below(std::size(kPieces))]);
        break;
      case 1:
        text.replace(place, length, kPieces[below(std::size(kPieces))]);
        break;
      case 2:
        text.erase(place, length);
        break;
      default:
        text.insert(place, text.substr(below(text.size() + 1), below(12)));
    }
  }

  std::mt19937 generator_{20260412};
};

TEST(JSONReadersAgreementTest, TheLenientReaderAgreesWithWhateverThePlainOneAccepts) {
  Mutator mutator;
  int accepted = 0;
  for (int i = 0; i < 40000; ++i) {
    const std::string body = mutator.body();
    const auto plain = readPlainJSON(bytesOf(body));
    if (!plain) continue;
    ++accepted;
    JSONFailure failure;
    const auto lenient = readLenientJSON(bytesOf(body), &failure);
    ASSERT_TRUE(lenient.has_value()) << body << ": " << failure.reason;
    ASSERT_TRUE(*lenient == *plain) << body;
  }
  EXPECT_GT(accepted, 5000);
}

TEST(JSONReadersAgreementTest, AFailureNamesAPlaceInTheBody) {
  Mutator mutator;
  int refused = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string body = mutator.body();
    JSONFailure failure;
    if (readLenientJSON(bytesOf(body), &failure)) continue;
    ++refused;
    ASSERT_FALSE(failure.reason.empty()) << body;
    ASSERT_LE(failure.byteOffset, body.size()) << body;
  }
  EXPECT_GT(refused, 5000);
}

}  // namespace
}  // namespace qvr
