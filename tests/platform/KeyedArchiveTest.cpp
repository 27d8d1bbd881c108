// Writing keyed archives, and reading back what was written.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/KeyedArchive.h"
#include "tests/platform/ArchiveSupport.h"

namespace {

using archive_support::archive;
using archive_support::Entries;
using archive_support::exampleArchive;
using archive_support::exampleEntries;
using archive_support::hex;
using archive_support::nilEntries;
using archive_support::read;
using archive_support::Reading;
using archive_support::render;
using qvr::CodedClass;
using qvr::CodedValue;
using qvr::Coder;
using qvr::Data;
using qvr::Date;
using qvr::ErrorPtr;
using qvr::TextSet;

std::string text(const Data& data) {
  return std::string(data.begin(), data.end());
}

Entries with(std::string_view key, CodedValue value) {
  Entries entries = exampleEntries();
  for (auto& entry : entries) {
    if (entry.first == key) entry.second = value;
  }
  return entries;
}

void expectRoundTrip(const Entries& entries) {
  const Reading reading = read(archive(entries));
  EXPECT_TRUE(reading.succeeded) << reading.reason();
  EXPECT_EQ(render(reading.entries), render(entries));
}

void expectNotWritten(std::string_view key, CodedValue value) {
  const auto encode = [&](Coder& coder) { coder.encodeObject(value, key); };
  ErrorPtr error;
  EXPECT_FALSE(qvr::archiveRootObject("QVROAuth2Token", encode, &error));
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(error->is(qvr::NSCocoaErrorDomain, 4866));
  EXPECT_EQ(error->userInfo(), nullptr);
  EXPECT_FALSE(qvr::archiveRootObject("QVROAuth2Token", encode, nullptr));
}

TEST(KeyedArchive, WritesTheExampleByteForByte) {
  const Data expected = exampleArchive();
  ASSERT_EQ(expected.size(), 543u);
  EXPECT_EQ(hex(text(archive(exampleEntries()))), hex(text(expected)));
}

TEST(KeyedArchive, ReadsTheExample) {
  const Reading reading = read(exampleArchive());
  EXPECT_TRUE(reading.succeeded) << reading.reason();
  EXPECT_EQ(render(reading.entries), render(exampleEntries()));
}

TEST(KeyedArchive, EveryValueIsReadBackAsItWasWritten) {
  expectRoundTrip(exampleEntries());
  expectRoundTrip(nilEntries());
  for (const auto& [key, value] : nilEntries())
    expectRoundTrip(with(key, value));
}

TEST(KeyedArchive, StringsOfEveryKindAreReadBack) {
  for (const std::string& string :
       {std::string(), std::string("\0a", 2), std::string("$null"), std::string("QVROAuth2Token"),
        std::string("QVR.accessToken"), std::string("caf\xC3\xA9 \xF0\x9F\x94\x91"),
        std::string(14, 'x'), std::string(15, 'x'), std::string(255, 'x'), std::string(256, 'x'),
        std::string(70000, 'x'), std::string(4500, 'x') + "\xE2\x82\xAC"}) {
    expectRoundTrip(with("QVR.accessToken", string));
  }
}

TEST(KeyedArchive, EqualStringsUnderDifferentKeysAreReadBack) {
  Entries entries = with("QVR.refreshToken", "at");
  entries[1].second = "at";
  entries[4].second = TextSet{"at", ""};
  expectRoundTrip(entries);
}

TEST(KeyedArchive, NumbersStayIntegersAndDoubles) {
  for (const std::int64_t number :
       {std::int64_t{0}, std::int64_t{-1}, std::int64_t{255}, std::int64_t{65536},
        std::int64_t{100000}, std::int64_t{-3600}, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    expectRoundTrip(with("QVR.expiresIn", number));
  }
  for (const double number : {0.0, -0.0, 0.5, -3599.25, 3600.0, 1e300, 5e-324, 700000000.5}) {
    expectRoundTrip(with("QVR.expiresIn", number));
  }
}

TEST(KeyedArchive, DatesBeforeTheReferenceDateAreReadBack) {
  for (const double seconds : {0.0, -978307200.0, -0.5, 1e18}) {
    expectRoundTrip(with("QVR.creationDate", Date{seconds}));
  }
}

TEST(KeyedArchive, SetsOfEverySizeAreReadBack) {
  TextSet scopes;
  for (int i = 0; i < 300; ++i)
    scopes.insert("https://mail.example/scope/" + std::to_string(i));
  expectRoundTrip(with("QVR.grantedScopes", scopes));
  expectRoundTrip(with("QVR.grantedScopes", TextSet()));
  expectRoundTrip(with("QVR.grantedScopes", TextSet{""}));
  expectRoundTrip(with("QVR.grantedScopes", TextSet{"", "mail", "\xC3\xA9"}));
}

TEST(KeyedArchive, AMissingKeyReadsAsNil) {
  for (std::size_t missing = 0; missing < exampleEntries().size(); ++missing) {
    Entries written = exampleEntries();
    Entries expected = written;
    written.erase(written.begin() + static_cast<std::ptrdiff_t>(missing));
    expected[missing].second = CodedValue();
    const Reading reading = read(archive(written));
    EXPECT_TRUE(reading.succeeded) << reading.reason();
    EXPECT_EQ(render(reading.entries), render(expected));
  }
  EXPECT_EQ(render(read(archive({})).entries), render(nilEntries()));
}

TEST(KeyedArchive, TextThatIsNotUTF8CannotBeWritten) {
  expectNotWritten("QVR.accessToken", "\xFF");
  expectNotWritten("QVR.grantedScopes", TextSet{"mail", "\xED\xA0\x80"});
  expectNotWritten("\xC0\x80", "value");
  ErrorPtr error;
  EXPECT_FALSE(qvr::archiveRootObject(
      "\xFF", [](Coder&) {}, &error));
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(error->is(qvr::NSCocoaErrorDomain, 4866));
}

TEST(KeyedArchive, NumbersAndDatesThatAreNotFiniteCannotBeWritten) {
  for (const double number :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    expectNotWritten("QVR.expiresIn", number);
    expectNotWritten("QVR.creationDate", Date{number});
  }
}

TEST(KeyedArchive, WhatIsTooLongToBeReadBackCannotBeWritten) {
  const std::size_t overhead = archive({{"k", "x"}}).size();
  const std::size_t fits = (1 << 20) - overhead - 200;
  EXPECT_TRUE(read(archive({{"k", std::string(fits, 'x')}})).succeeded);
  expectNotWritten("k", std::string(1 << 20, 'x'));
}

TEST(KeyedArchive, AnArchiverDoesNotDecodeAndAnUnarchiverDoesNotEncode) {
  const auto decode = [](Coder& coder) { coder.decodeObject(CodedClass::kString, "k"); };
  EXPECT_THROW(qvr::archiveRootObject("C", decode, nullptr), qvr::InvalidArgumentException);
  const auto encode = [](Coder& coder) { coder.encodeObject("v", "k"); };
  EXPECT_THROW(qvr::unarchiveRootObject(exampleArchive(), "QVROAuth2Token", encode, nullptr),
               qvr::InvalidArgumentException);
}

TEST(KeyedArchive, AnEntryOfAnotherClassFailsTheReadingAndNamesKeyAndClass) {
  const struct {
    const char* key;
    CodedValue value;
    const char* allowed;
  } kCases[] = {
      {"QVR.accessToken", std::int64_t{1}, "NSString"},
      {"QVR.tokenType", TextSet{"secret"}, "NSString"},
      {"QVR.refreshToken", Date{1}, "NSString"},
      {"QVR.expiresIn", "secret", "NSNumber"},
      {"QVR.expiresIn", Date{1}, "NSNumber"},
      {"QVR.grantedScopes", "secret", "NSSet of NSString"},
      {"QVR.grantedScopes", 0.5, "NSSet of NSString"},
      {"QVR.grantedScopes", Date{1}, "NSSet of NSString"},
      {"QVR.creationDate", 0.5, "NSDate"},
      {"QVR.creationDate", "secret", "NSDate"},
      {"QVR.creationDate", TextSet{"secret"}, "NSDate"},
  };
  for (const auto& [key, value, allowed] : kCases) {
    const Reading reading = read(archive(with(key, value)));
    EXPECT_FALSE(reading.succeeded) << key;
    EXPECT_TRUE(reading.error->is(qvr::NSCocoaErrorDomain, 4864));
    EXPECT_NE(reading.reason().find(std::string("\"") + key + "\""), std::string::npos);
    EXPECT_NE(reading.reason().find(allowed), std::string::npos) << reading.reason();
    EXPECT_EQ(reading.reason().find("secret"), std::string::npos) << reading.reason();
  }
}

TEST(KeyedArchive, AfterAnEntryOfAnotherClassNothingMoreIsRead) {
  const Reading reading = read(archive(with("QVR.tokenType", std::int64_t{1})));
  Entries expected = nilEntries();
  expected[0].second = "at";
  EXPECT_EQ(render(reading.entries), render(expected));
  EXPECT_NE(reading.reason().find("QVR.tokenType"), std::string::npos);
}

TEST(KeyedArchive, ARootObjectOfAnotherClassIsNotRead) {
  const Reading reading = read(archive(exampleEntries(), "QVRSomethingElse"));
  EXPECT_FALSE(reading.succeeded);
  EXPECT_FALSE(reading.decodeCalled);
  EXPECT_NE(reading.reason().find("QVROAuth2Token"), std::string::npos);
  EXPECT_TRUE(read(archive(exampleEntries(), "QVRSomethingElse"), "NSObject").succeeded);
}

TEST(KeyedArchive, FailureWithoutAnErrorSlotIsReportedAllTheSame) {
  EXPECT_FALSE(qvr::unarchiveRootObject(
      {}, "QVROAuth2Token", [](Coder&) {}, nullptr));
}

}  // namespace
