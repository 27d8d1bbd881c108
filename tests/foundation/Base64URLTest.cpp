// base64url: both encoders, and a decoder that takes both alphabets.

#include <gtest/gtest.h>

#include <numeric>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"

namespace {

using qvr::Data;

constexpr std::uint64_t kStrict = QVROAuth2Base64DecodingStrict;
constexpr std::uint64_t kIgnoring = QVROAuth2Base64DecodingIgnoreUnknownCharacters;

struct EncodingCase {
  Data bytes;
  const char* padded;
  const char* unpadded;
};

const EncodingCase kEncodings[] = {
    {{}, "", ""},
    {{0x00}, "AA==", "AA"},
    {{0x41}, "QQ==", "QQ"},
    {{0xFB, 0xFF}, "-_8=", "-_8"},
    {{0xFB, 0xEF, 0xBE}, "----", "----"},
    {{0xFF, 0xFF, 0xFF}, "____", "____"},
    {{0xFF, 0xFE, 0xFD, 0xFC}, "__79_A==", "__79_A"},
};

TEST(Base64URLTest, EncodesWithPadding) {
  for (const EncodingCase& expected : kEncodings)
    EXPECT_EQ(qvr_base64URLEncodedString(expected.bytes), expected.padded);
}

TEST(Base64URLTest, EncodesWithoutPadding) {
  for (const EncodingCase& expected : kEncodings)
    EXPECT_EQ(qvr_base64URLEncodedStringNoPadding(expected.bytes), expected.unpadded);
}

TEST(Base64URLTest, DecodesWhatItEncodes) {
  for (const EncodingCase& expected : kEncodings) {
    EXPECT_EQ(qvr_initWithBase64URLEncodedString(expected.padded, kStrict), expected.bytes);
    EXPECT_EQ(qvr_initWithBase64URLEncodedString(expected.unpadded, kStrict), expected.bytes);
  }
}

TEST(Base64URLTest, LongBuffersStayOnOneLineAndComeBackWhole) {
  Data bytes(1000);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  const std::string text = qvr_base64URLEncodedString(bytes);
  EXPECT_EQ(text.size(), 1336u);
  EXPECT_EQ(text.find_first_of("\r\n+/ "), std::string::npos);
  EXPECT_EQ(qvr_base64URLEncodedStringNoPadding(bytes), text.substr(0, 1334));
  EXPECT_EQ(qvr_initWithBase64URLEncodedString(text, kStrict), bytes);
}

struct DecodingCase {
  const char* text;
  std::optional<Data> strict;
  std::optional<Data> ignoring;
};

void expectDecoded(const DecodingCase& expected) {
  SCOPED_TRACE(expected.text);
  EXPECT_EQ(qvr_initWithBase64URLEncodedString(expected.text, kStrict), expected.strict);
  EXPECT_EQ(qvr_initWithBase64URLEncodedString(expected.text, kIgnoring), expected.ignoring);
}

const std::optional<Data> kNil;
const Data kTwo = {0xFB, 0xFF};
const Data kLetter = {0x41};
const Data kThree = {0, 0, 0};

TEST(Base64URLTest, TheEmptyTextDecodesToAnEmptyBuffer) {
  expectDecoded({"", Data{}, Data{}});
}

TEST(Base64URLTest, BothAlphabetsAreAcceptedEvenMixed) {
  for (const char* text : {"-_8", "-_8=", "+/8=", "-/8", "+_8"})
    expectDecoded({text, kTwo, kTwo});
}

TEST(Base64URLTest, TextThatCarriesItsPaddingDecodesAsItStands) {
  expectDecoded({"QQ==", kLetter, kLetter});
  expectDecoded({"AA==", Data{0}, Data{0}});
  expectDecoded({"AAA=", Data{0, 0}, Data{0, 0}});
}

TEST(Base64URLTest, PartialPaddingIsCompleted) {
  expectDecoded({"QQ=", kLetter, kLetter});
}

TEST(Base64URLTest, ALengthThatLeavesARemainderOfOneIsRefused) {
  for (const char* text : {"A", "AAAAA", "QQ===", "AAAAAAAAA"})
    expectDecoded({text, kNil, kNil});
}

TEST(Base64URLTest, UnusedBitsMayBeSet) {
  expectDecoded({"QR==", kLetter, kLetter});
  expectDecoded({"QR", kLetter, kLetter});
  expectDecoded({"-_-", kTwo, kTwo});
}

TEST(Base64URLTest, PaddingOutOfPlaceIsRefused) {
  for (const char* text : {"Q=Q=", "A===", "====", "=", "==", "QQ==QQ==", "AAAA====", "=QQQ"})
    expectDecoded({text, kNil, kNil});
}

TEST(Base64URLTest, ForeignCharactersAreRefusedOrSkipped) {
  expectDecoded({"AA AAAA ", kNil, kNil});       // six letters of the alphabet remain
  expectDecoded({" AAAA   ", kNil, kThree});     // four remain
  expectDecoded({"A\nA\tA\rA.", kNil, kThree});  // four remain
  expectDecoded({"!!!!", kNil, Data{}});
  expectDecoded({"AA.A", kNil, kNil});
  expectDecoded(
      {"\xFF\xFE\xFD"
       "A",
       kNil, kNil});
}

TEST(Base64URLTest, PaddingIsDecidedByEveryCharacterSkippedOnesIncluded) {
  expectDecoded({"QQ ", kNil, kNil});        // three characters get one "=", two would be right
  expectDecoded({"QQ  ", kNil, kNil});       // four get none
  expectDecoded({"QQ    ", kNil, kLetter});  // six get the two that are right
  expectDecoded({"AAA A", kNil, kThree});    // five get none, which is right
  expectDecoded({"AA AA ", kNil, kNil});     // six get two, none would be right
}

TEST(Base64URLTest, CharactersAreCountedInUTF16Units) {
  expectDecoded({"QQ\xF0\x9F\x98\x80", kNil, kNil});  // one character of two units: four, no "="
  expectDecoded({"QQ\xF0\x9F\x98\x80\xF0\x9F\x98\x80", kNil, kLetter});  // six units: "=="
  expectDecoded({"QQ\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", kNil, kLetter});  // six units: "=="
}

TEST(Base64URLTest, OnlyTheFirstOptionBitCounts) {
  EXPECT_EQ(qvr_initWithBase64URLEncodedString(" AAAA   ", 2), std::nullopt);
  EXPECT_EQ(qvr_initWithBase64URLEncodedString(" AAAA   ", 3), kThree);
}

TEST(Base64URLTest, AnAbsentTextDecodesToNothing) {
  EXPECT_EQ(qvr_initWithBase64URLEncodedString(nullptr, kStrict), std::nullopt);
}

}  // namespace
