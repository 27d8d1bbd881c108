#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "src/platform/BinaryPropertyListReader.h"
#include "tests/platform/ArchiveSupport.h"

namespace {

using archive_support::arrayObject;
using archive_support::asciiObject;
using archive_support::bigEndian;
using archive_support::dictionaryObject;
using archive_support::File;
using archive_support::fileWithOffsets;
using archive_support::integerObject;
using archive_support::uidObject;
using qvr::BinaryPropertyListReader;
using qvr::Data;
using qvr::PropertyListType;
using Number = BinaryPropertyListReader::Number;

constexpr std::uint64_t kHuge = 0x7FFFFFFFFFFFFFFF;
constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

bool opens(const Data& data) {
  std::string_view problem;
  const bool sound = BinaryPropertyListReader::open(data, &problem).has_value();
  EXPECT_EQ(problem.empty(), sound);
  return sound;
}

bool opens(const std::string& object) {
  return opens(File{{object}}.data());
}

// Opens a file of one object and hands the reader over.
template <class Use>
void withObject(const std::string& object, Use use) {
  const Data data = File{{object}}.data();
  std::string_view problem;
  const auto reader = BinaryPropertyListReader::open(data, &problem);
  ASSERT_TRUE(reader.has_value()) << problem << ' ' << archive_support::hex(object);
  use(*reader);
}

void expectNumber(const std::string& object, Number expected) {
  withObject(object, [&](const BinaryPropertyListReader& reader) {
    EXPECT_TRUE(reader.isNumber(0));
    EXPECT_EQ(reader.number(0), expected) << archive_support::hex(object);
  });
}

void expectString(const std::string& object, const std::string& expected) {
  withObject(object, [&](const BinaryPropertyListReader& reader) {
    EXPECT_TRUE(reader.isString(0));
    EXPECT_EQ(reader.string(0), expected);
    EXPECT_TRUE(reader.stringEquals(0, expected));
    EXPECT_FALSE(reader.stringEquals(0, expected + "x"));
  });
}

TEST(BinaryPropertyListReader, ReadsIntegersOfEveryWidth) {
  expectNumber(integerObject(0xFF, 1), std::int64_t{255});
  expectNumber(integerObject(0xFFFF, 2), std::int64_t{65535});
  expectNumber(integerObject(0xFFFFFFFF, 4), std::int64_t{4294967295});
  expectNumber(integerObject(7, 8), std::int64_t{7});
  expectNumber(integerObject(kMost, 8), std::int64_t{-1});
  expectNumber("\x14" + bigEndian(0, 8) + bigEndian(7, 8), std::int64_t{7});
  expectNumber("\x14" + bigEndian(kMost, 8) + bigEndian(kMost, 8), std::int64_t{-1});
}

TEST(BinaryPropertyListReader, IntegersBeyondSixtyFourBitsBecomeDoubles) {
  expectNumber("\x14" + bigEndian(0, 8) + bigEndian(kMost, 8), 0x1p64);
  expectNumber("\x14" + bigEndian(0, 8) + bigEndian(kHuge + 1, 8), 0x1p63);
  expectNumber("\x14" + bigEndian(1, 8) + bigEndian(0, 8), 0x1p64);
  expectNumber("\x14" + bigEndian(kMost, 8) + bigEndian(0, 8), -0x1p64);
  expectNumber("\x14" + bigEndian(kHuge, 8) + bigEndian(0, 8), 0x1p127);
}

TEST(BinaryPropertyListReader, ReadsRealsOfBothWidthsAndBooleans) {
  expectNumber("\x22" + bigEndian(0x3FC00000, 4), 1.5);
  expectNumber("\x23" + bigEndian(0xBFE0000000000000, 8), -0.5);
  expectNumber("\x08", std::int64_t{0});
  expectNumber("\x09", std::int64_t{1});
  withObject(std::string(1, '\0'),
             [](const BinaryPropertyListReader& reader) { EXPECT_FALSE(reader.isNumber(0)); });
}

TEST(BinaryPropertyListReader, ReadsDatesAndUIDs) {
  withObject("\x33" + bigEndian(0x3FF8000000000000, 8), [](const auto& reader) {
    EXPECT_EQ(reader.type(0), PropertyListType::kDate);
    EXPECT_EQ(reader.date(0), 1.5);
  });
  for (const std::size_t width : {1u, 2u, 3u, 4u, 8u}) {
    withObject(uidObject(200, width), [](const auto& reader) {
      EXPECT_EQ(reader.type(0), PropertyListType::kUID);
      EXPECT_EQ(reader.UID(0), 200u);
    });
  }
}

TEST(BinaryPropertyListReader, ReadsStringsOfBothKinds) {
  expectString("\x50", "");
  expectString(
      "\x53"
      "abc",
      "abc");
  expectString(std::string("\x62\x00\x61\x00\xE9", 5), "a\xC3\xA9");
  expectString("\x62\xD8\x3D\xDD\x11", "\xF0\x9F\x94\x91");
  expectString(std::string("\x61\x00\x61", 3), "a");
  for (const std::size_t width : {1u, 2u, 4u, 8u}) {
    expectString("\x5F" + integerObject(3, width) + "abc", "abc");
  }
}

TEST(BinaryPropertyListReader, ReadsReferencesAndOffsetsOfEveryWidth) {
  for (std::size_t offsetWidth = 1; offsetWidth <= 8; ++offsetWidth) {
    for (std::size_t width = 1; width <= 8; ++width) {
      const File file{{arrayObject({1, 1}, width), asciiObject("x")}, offsetWidth, width};
      const Data data = file.data();
      std::string_view problem;
      const auto reader = BinaryPropertyListReader::open(data, &problem);
      ASSERT_TRUE(reader.has_value()) << offsetWidth << ' ' << width;
      EXPECT_EQ(reader->count(0), 2u);
      EXPECT_EQ(reader->element(0, 1), 1u);
    }
  }
  for (const std::size_t width : {0u, 9u, 16u, 255u}) {
    EXPECT_FALSE(opens(File{{asciiObject("x")}, width, 1}.data())) << width;
    EXPECT_FALSE(opens(File{{asciiObject("x")}, 2, width}.data())) << width;
  }
}

TEST(BinaryPropertyListReader, OfTwoEqualKeysTheFirstWins) {
  const File file{{dictionaryObject({1, 2, 1}, {3, 4, 5}), asciiObject("a"),
                   std::string("\x61\x00\x62", 3), integerObject(1, 1), integerObject(2, 1),
                   integerObject(3, 1)}};
  const Data data = file.data();
  std::string_view problem;
  const auto reader = BinaryPropertyListReader::open(data, &problem);
  ASSERT_TRUE(reader.has_value());
  EXPECT_EQ(reader->find(0, "a"), 3u);
  EXPECT_EQ(reader->find(0, "b"), 4u);  // whose key is written as UTF-16
  EXPECT_EQ(reader->find(0, "c"), std::nullopt);
}

TEST(BinaryPropertyListReader, RefusesWhatIsNoBinaryPropertyList) {
  for (const char* text : {"", "bplist00", "<?xml version=\"1.0\"?><plist version=\"1.0\"></plist>",
                           "bplist01 and then some forty more characters here",
                           "{\"access_token\": \"at\", \"token_type\": \"Bearer\"}   "}) {
    const std::string_view view(text);
    EXPECT_FALSE(opens(Data(view.begin(), view.end()))) << text;
  }
}

TEST(BinaryPropertyListReader, RefusesTrailersOutOfRange) {
  const Data sound = File{{asciiObject("x")}}.data();
  ASSERT_TRUE(opens(sound));
  const std::size_t trailer = sound.size() - 32;
  struct {
    std::size_t field;
    std::uint64_t value;
  } const kCases[] = {{8, 0},      {8, 2},  {8, kHuge},        {8, kMost},  {16, 1},
                      {16, kMost}, {24, 7}, {24, trailer + 1}, {24, kHuge}, {24, kMost}};
  for (const auto& [field, value] : kCases) {
    Data data = sound;
    const std::string bytes = bigEndian(value, 8);
    std::copy(bytes.begin(), bytes.end(),
              data.begin() + static_cast<std::ptrdiff_t>(trailer + field));
    EXPECT_FALSE(opens(data)) << field << ' ' << value;
  }
}

TEST(BinaryPropertyListReader, RefusesOffsetsOutOfRange) {
  const std::string body = asciiObject("x");
  EXPECT_TRUE(opens(fileWithOffsets(body, {8}, 8, 1)));
  for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{10},
                                     std::uint64_t{11}, std::uint64_t{1000}, kHuge, kMost}) {
    EXPECT_FALSE(opens(fileWithOffsets(body, {offset}, 8, 1))) << offset;
  }
}

TEST(BinaryPropertyListReader, RefusesLengthsOutOfRange) {
  for (const char* marker : {"\x4F", "\x5F", "\x6F", "\xAF", "\xCF", "\xDF"}) {
    for (const std::uint64_t length : {std::uint64_t{16}, std::uint64_t{0x80000000},
                                       std::uint64_t{1} << 63, kHuge, kMost, kMost / 2 + 2}) {
      EXPECT_FALSE(opens(marker + integerObject(length, 8))) << marker << ' ' << length;
    }
    EXPECT_FALSE(opens(std::string(marker))) << marker;
    EXPECT_FALSE(opens(marker + std::string("\x10"))) << marker;
    EXPECT_FALSE(opens(marker + std::string("\x14") + bigEndian(0, 16))) << marker;
    EXPECT_FALSE(opens(marker + std::string("\x15") + bigEndian(0, 32))) << marker;
    EXPECT_FALSE(opens(marker + std::string("\x51") + "x")) << marker;
    EXPECT_TRUE(opens(marker + integerObject(0, 8))) << marker;
  }
  for (const char* truncated : {"\x10", "\x11\x01", "\x13", "\x14", "\x22", "\x23", "\x33", "\x41",
                                "\x52x", "\x61x", "\x80", "\x87", "\xA1", "\xC1", "\xD1"}) {
    EXPECT_FALSE(opens(std::string(truncated))) << truncated;
  }
}

TEST(BinaryPropertyListReader, RefusesTypesThatAreNotDefined) {
  int accepted = 0;
  for (int marker = 0; marker < 256; ++marker) {
    const std::string object = std::string(1, static_cast<char>(marker)) + std::string(40, '\0');
    if (!opens(object)) continue;
    ++accepted;
    const int type = marker >> 4;
    EXPECT_TRUE(type <= 6 || type == 8 || type == 0xA || type == 0xC || type == 0xD) << marker;
  }
  // Singletons 3, integers 5, reals 2, date 1, UIDs 8; data, two strings and array and set 15 each
  // (a length cannot follow as object 0x00); dictionaries with more than no entry have a key that
  // is no string.
  EXPECT_EQ(accepted, 3 + 5 + 2 + 1 + 8 + 5 * 15 + 1);
}

TEST(BinaryPropertyListReader, RefusesMalformedStrings) {
  EXPECT_FALSE(opens("\x51\x80"));
  EXPECT_FALSE(
      opens("\x5A"
            "12345678\xC3\xA9"));
  EXPECT_FALSE(opens("\x61\xD8\x3D"));          // a high surrogate alone
  EXPECT_FALSE(opens("\x61\xDD\x11"));          // a low one
  EXPECT_FALSE(opens("\x62\xDD\x11\xD8\x3D"));  // in the wrong order
  EXPECT_FALSE(opens(std::string("\x62\xD8\x3D\x00\x61", 5)));
}

TEST(BinaryPropertyListReader, RefusesReferencesOutOfRangeAndKeysThatAreNoStrings) {
  EXPECT_TRUE(opens(arrayObject({0})));
  EXPECT_FALSE(opens(arrayObject({1})));
  EXPECT_FALSE(opens(arrayObject({255})));
  EXPECT_FALSE(opens("\xC1\x01"));
  EXPECT_FALSE(opens(File{{arrayObject({kMost}, 8)}, 1, 8}.data()));
  EXPECT_FALSE(opens(File{{arrayObject({std::uint64_t{1} << 32}, 8)}, 1, 8}.data()));
  EXPECT_TRUE(opens(File{{dictionaryObject({1}, {0}), asciiObject("k")}}.data()));
  EXPECT_FALSE(opens(File{{dictionaryObject({1}, {2}), asciiObject("k")}}.data()));
  EXPECT_FALSE(opens(File{{dictionaryObject({2}, {1}), asciiObject("k")}}.data()));
  EXPECT_FALSE(opens(File{{dictionaryObject({1}, {1}), integerObject(1, 1)}}.data()));
  EXPECT_FALSE(opens(File{{dictionaryObject({0}, {0})}}.data()));
}

TEST(BinaryPropertyListReader, ListsThatContainThemselvesAreHarmless) {
  EXPECT_TRUE(opens(File{{arrayObject({1}), arrayObject({2, 0}), arrayObject({0, 1, 2})}}.data()));
}

TEST(BinaryPropertyListReader, RefusesObjectsThatOverlap) {
  const std::string body = arrayObject({0, 1, 0, 1});
  EXPECT_TRUE(opens(fileWithOffsets(body + "\x08", {8, 13}, 1, 1)));
  EXPECT_FALSE(opens(fileWithOffsets(body, {8, 8}, 1, 1)));
  EXPECT_FALSE(opens(fileWithOffsets(asciiObject("\x51\x51\x51x"), {8, 9, 10}, 1, 1)));
}

TEST(BinaryPropertyListReader, ReadsUpToOneMebibyte) {
  const auto fileOfSize = [](std::size_t size) {
    const std::size_t overhead = 8 + 6 + 4 + 32;  // magic, string header, one offset, trailer
    return File{{asciiObject(std::string(size - overhead, 'x'))}, 4}.data();
  };
  const Data largest = fileOfSize(1 << 20);
  ASSERT_EQ(largest.size(), std::size_t{1} << 20);
  EXPECT_TRUE(opens(largest));
  EXPECT_FALSE(opens(fileOfSize((1 << 20) + 1)));
}

}  // namespace
