// The record in real archives, its own and those of other writers.

#include <functional>
#include <map>

#include "src/platform/KeyedArchive.h"
#include "tests/storage/TokenSamples.h"

namespace {

using qvr::CodedValue;
using support::emptyToken;
using support::fieldsOf;
using support::fullToken;

// An archive of fullToken() by another writer.
constexpr std::string_view kArchiveOfFullToken =
    "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058"
    "246f626a6563747312000186a05f100f4e534b657965644172636869766572d1080954726f6f748001ad"
    "0b0c1b1c1d1e1f2526272d313455246e756c6cd70d0e0f101112131415161718191a5f100f5156522e61"
    "6363657373546f6b656e5d5156522e746f6b656e547970655d5156522e65787069726573496e5f101051"
    "56522e72656672657368546f6b656e5f10115156522e6772616e74656453636f7065735f10105156522e"
    "6372656174696f6e446174655624636c61737380028003800480058006800a800c526174564265617265"
    "72110e10527274d2201321245a4e532e6f626a65637473a22223800780088009546d61696c566f70656e"
    "6964d228292a2b5824636c61737365735a24636c6173736e616d65a22b2c554e53536574584e534f626a"
    "656374d22e132f30574e532e74696d652341c4dc9380400000800bd228293233a2332c564e5344617465"
    "d228293536a2362c5e5156524f4175746832546f6b656e00080011001a00240029003200370049004c00"
    "5100530061006700760088009600a400b700cb00de00e500e700e900eb00ed00ef00f100f300f600fd01"
    "0001030108011301160118011a011c01210128012d013601410144014a0153015801600169016b017001"
    "73017a017f01820000000000000201000000000000003700000000000000000000000000000191";

// Archives of a record whose scopes are: a set of "mail", an array of it, a set of a number.
constexpr std::string_view kScopesInASet =
    "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058246f"
    "626a6563747312000186a05f100f4e534b657965644172636869766572d1080954726f6f748001a60b0c1116"
    "171d55246e756c6cd20d0e0f105f10115156522e6772616e74656453636f7065735624636c61737380028004"
    "d2120e13155a4e532e6f626a65637473a11480038005546d61696cd218191a1b5a24636c6173736e616d6558"
    "24636c61737365735e5156524f4175746832546f6b656ea21a1c584e534f626a656374d218191e1f554e5353"
    "6574a21e1c08111a24293237494c51535a606579808284899496989a9fa4afb8c7cad3d8de00000000000001"
    "010000000000000020000000000000000000000000000000e1";
constexpr std::string_view kScopesInAnArray =
    "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058246f"
    "626a6563747312000186a05f100f4e534b657965644172636869766572d1080954726f6f748001a60b0c1116"
    "171d55246e756c6cd20d0e0f105f10115156522e6772616e74656453636f7065735624636c61737380028004"
    "d2120e13155a4e532e6f626a65637473a11480038005546d61696cd218191a1b5a24636c6173736e616d6558"
    "24636c61737365735e5156524f4175746832546f6b656ea21a1c584e534f626a656374d218191e1f574e5341"
    "72726179a21e1c08111a24293237494c51535a606579808284899496989a9fa4afb8c7cad3d8e00000000000"
    "0001010000000000000020000000000000000000000000000000e3";
constexpr std::string_view kScopesThatAreNumbers =
    "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058246f"
    "626a6563747312000186a05f100f4e534b657965644172636869766572d1080954726f6f748001a60b0c1116"
    "171d55246e756c6cd20d0e0f105f10115156522e6772616e74656453636f7065735624636c61737380028004"
    "d2120e13155a4e532e6f626a65637473a114800380051005d218191a1b5a24636c6173736e616d655824636c"
    "61737365735e5156524f4175746832546f6b656ea21a1c584e534f626a656374d218191e1f554e53536574a2"
    "1e1c08111a24293237494c51535a606579808284899496989a9ca1acb5c4c7d0d5db00000000000001010000"
    "000000000020000000000000000000000000000000de";

qvr::Data bytesOf(std::string_view hexadecimal) {
  qvr::Data bytes;
  for (std::size_t i = 0; i < hexadecimal.size(); i += 2) {
    bytes.push_back(
        static_cast<std::uint8_t>(std::stoi(std::string(hexadecimal.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

class TokenArchiveFormTest : public testing::Test {
 protected:
  static qvr::Data archived(const std::function<void(qvr::Coder&)>& encode) {
    qvr::ErrorPtr error;
    const auto data = qvr::archiveRootObject("QVROAuth2Token", encode, &error);
    EXPECT_TRUE(data) << (error ? error->description() : "");
    return data.value_or(qvr::Data());
  }

  // Null, with the error in `error`, when the archive is rejected.
  qvr::Ref<QVROAuth2Token> unarchived(const qvr::Data& data) {
    qvr::Ref<QVROAuth2Token> token;
    error = nullptr;
    const bool isSound = qvr::unarchiveRootObject(
        data, "QVROAuth2Token",
        [&token](qvr::Coder& coder) { token = QVROAuth2Token::initWithCoder(coder); }, &error);
    return isSound ? token : nullptr;
  }

  qvr::Ref<QVROAuth2Token> roundTrip(const qvr::Ref<QVROAuth2Token>& token) {
    return unarchived(archived([&token](qvr::Coder& coder) { token->encodeWithCoder(coder); }));
  }

  qvr::ErrorPtr error;
};

TEST_F(TokenArchiveFormTest, EveryRecordComesBackWithEqualFields) {
  const qvr::Ref<QVROAuth2Token> tokens[] = {
      fullToken(),
      emptyToken(),
      QVROAuth2Token::initWithAccessToken("", "", 0, "", qvr::TextSet{}, qvr::Date{}),
      QVROAuth2Token::initWithAccessToken("gr\xC3\xBC\xC3\x9F", "\xF0\x9F\x94\x91", -0.125, nullptr,
                                          qvr::TextSet{"", "a", "\xC3\xA9"}, qvr::Date{-1e9}),
      QVROAuth2Token::initWithAccessToken(std::string(5000, 'x'), nullptr, 1e300, "at",
                                          std::nullopt, qvr::Date{1e300}),
      QVROAuth2Token::initWithAccessToken("$null", "$null", -3600, "$null", qvr::TextSet{"$null"},
                                          std::nullopt),
  };
  for (const qvr::Ref<QVROAuth2Token>& token : tokens) {
    const auto readBack = roundTrip(token);
    ASSERT_TRUE(readBack) << error->description();
    EXPECT_EQ(fieldsOf(*readBack), fieldsOf(*token));
  }
}

TEST_F(TokenArchiveFormTest, AnArchiveOfAnotherWriterIsRead) {
  const auto token = unarchived(bytesOf(kArchiveOfFullToken));
  ASSERT_TRUE(token) << error->description();
  EXPECT_EQ(fieldsOf(*token), fieldsOf(*fullToken()));
}

TEST_F(TokenArchiveFormTest, ScopesMustBeASetWhoseMembersAreStrings) {
  const auto token = unarchived(bytesOf(kScopesInASet));
  ASSERT_TRUE(token) << error->description();
  EXPECT_EQ(token->grantedScopes(), qvr::TextSet{"mail"});
  for (const std::string_view rejected : {kScopesInAnArray, kScopesThatAreNumbers}) {
    EXPECT_EQ(unarchived(bytesOf(rejected)), nullptr);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(qvr::NSCocoaErrorDomain, 4864)) << error->description();
  }
}

TEST_F(TokenArchiveFormTest, AnArchiveWithoutTheKeysHasAbsentFields) {
  const auto token = unarchived(archived([](qvr::Coder&) {}));
  ASSERT_TRUE(token);
  EXPECT_EQ(fieldsOf(*token), fieldsOf(*emptyToken()));
}

TEST_F(TokenArchiveFormTest, KeysThatAreNotTheRecordsAreIgnored) {
  const auto token = unarchived(archived([](qvr::Coder& coder) {
    fullToken()->encodeWithCoder(coder);
    coder.encodeObject(std::string("later"), "QVR.later");
  }));
  ASSERT_TRUE(token);
  EXPECT_EQ(fieldsOf(*token), fieldsOf(*fullToken()));
}

TEST_F(TokenArchiveFormTest, AnEntryOfAWrongClassIsRejected) {
  const CodedValue string = "3600";
  const CodedValue integer = std::int64_t{5};
  const CodedValue real = 5.5;
  const CodedValue set = qvr::TextSet{"mail"};
  const CodedValue date = qvr::Date{5};
  const std::map<std::string, std::vector<CodedValue>> wrong = {
      {"QVR.accessToken", {integer, real, set, date}},
      {"QVR.tokenType", {integer, real, set, date}},
      {"QVR.expiresIn", {string, set, date}},
      {"QVR.refreshToken", {integer, real, set, date}},
      {"QVR.grantedScopes", {string, integer, real, date}},
      {"QVR.creationDate", {string, integer, real, set}},
  };
  for (const auto& [key, values] : wrong) {
    for (const CodedValue& value : values) {
      const auto data =
          archived([&key = key, &value](qvr::Coder& coder) { coder.encodeObject(value, key); });
      EXPECT_EQ(unarchived(data), nullptr) << key << " " << value.index();
      ASSERT_TRUE(error);
      EXPECT_TRUE(error->is(qvr::NSCocoaErrorDomain, 4864)) << error->description();
    }
  }
}

}  // namespace
