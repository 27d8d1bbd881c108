// The archive form of the record: its keys, their order, their classes.

#include <map>

#include "tests/storage/TokenSamples.h"

namespace {

using qvr::CodedClass;
using qvr::CodedValue;
using support::emptyToken;
using support::fieldsOf;
using support::fullToken;
using testing::ElementsAre;
using testing::Pair;

using Entries = std::vector<std::pair<std::string, CodedValue>>;

// Notes what is asked of it, and answers from a table.
class NotingCoder final : public qvr::Coder {
 public:
  void encodeObject(CodedValue value, std::string_view key) override {
    encoded.emplace_back(key, std::move(value));
  }
  CodedValue decodeObject(CodedClass allowed, std::string_view key) override {
    decoded.emplace_back(key, allowed);
    const auto found = answers.find(key);
    return found != answers.end() ? found->second : CodedValue();
  }

  Entries encoded;
  std::vector<std::pair<std::string, CodedClass>> decoded;
  std::map<std::string, CodedValue, std::less<>> answers;
};

qvr::Ref<QVROAuth2Token> tokenLasting(double expiresIn) {
  return QVROAuth2Token::initWithAccessToken("at", "Bearer", expiresIn, "rt", std::nullopt,
                                             std::nullopt);
}

TEST(TokenCodingTest, WritesItsSixKeysInOrder) {
  NotingCoder coder;
  fullToken()->encodeWithCoder(coder);
  EXPECT_THAT(coder.encoded,
              ElementsAre(Pair("QVR.accessToken", CodedValue("at")),
                          Pair("QVR.tokenType", CodedValue("Bearer")),
                          Pair("QVR.expiresIn", CodedValue(std::int64_t{3600})),
                          Pair("QVR.refreshToken", CodedValue("rt")),
                          Pair("QVR.grantedScopes", CodedValue(qvr::TextSet{"mail", "openid"})),
                          Pair("QVR.creationDate", CodedValue(qvr::Date{700000000.5}))));
}

TEST(TokenCodingTest, WritesAbsentFieldsAsTheNullValue) {
  NotingCoder coder;
  emptyToken()->encodeWithCoder(coder);
  ASSERT_EQ(coder.encoded.size(), 6);
  for (const auto& [key, value] : coder.encoded)
    EXPECT_EQ(value, CodedValue()) << key;
}

struct NumberCase {
  double number;
  CodedValue coded;
};

TEST(TokenCodingTest, WritesWholeSecondsAsIntegersAndOthersAsTheyAre) {
  const NumberCase cases[] = {
      {0, std::int64_t{0}},
      {-3600, std::int64_t{-3600}},
      {9007199254740992.0, std::int64_t{9007199254740992}},
      {9007199254740994.0, 9007199254740994.0},
      {3600.5, 3600.5},
      {1e300, 1e300},
      {-1e300, -1e300},
  };
  for (const NumberCase& c : cases) {
    NotingCoder coder;
    tokenLasting(c.number)->encodeWithCoder(coder);
    EXPECT_EQ(coder.encoded.at(2).second, c.coded) << c.number;
  }
}

TEST(TokenCodingTest, ReadsItsSixKeysInOrderEachRestrictedToItsClass) {
  NotingCoder coder;
  const auto token = QVROAuth2Token::initWithCoder(coder);
  EXPECT_THAT(coder.decoded, ElementsAre(Pair("QVR.accessToken", CodedClass::kString),
                                         Pair("QVR.tokenType", CodedClass::kString),
                                         Pair("QVR.expiresIn", CodedClass::kNumber),
                                         Pair("QVR.refreshToken", CodedClass::kString),
                                         Pair("QVR.grantedScopes", CodedClass::kSetOfStrings),
                                         Pair("QVR.creationDate", CodedClass::kDate)));
  EXPECT_EQ(fieldsOf(*token), fieldsOf(*emptyToken())) << "missing keys are absent fields";
}

TEST(TokenCodingTest, ReadsWhatItWrote) {
  NotingCoder coder;
  fullToken()->encodeWithCoder(coder);
  coder.answers = {coder.encoded.begin(), coder.encoded.end()};
  EXPECT_EQ(fieldsOf(*QVROAuth2Token::initWithCoder(coder)), fieldsOf(*fullToken()));
}

TEST(TokenCodingTest, ReadsALifetimeOfEitherKindOfNumber) {
  NotingCoder coder;
  coder.answers = {{"QVR.expiresIn", CodedValue(std::int64_t{-5})}};
  EXPECT_EQ(QVROAuth2Token::initWithCoder(coder)->expiresIn(), -5);
  coder.answers = {{"QVR.expiresIn", CodedValue(0.25)}};
  EXPECT_EQ(QVROAuth2Token::initWithCoder(coder)->expiresIn(), 0.25);
}

}  // namespace
