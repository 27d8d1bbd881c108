#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory_resource>
#include <string>
#include <vector>

#include "src/platform/BinaryPropertyListWriter.h"
#include "tests/platform/ArchiveSupport.h"

namespace {

using archive_support::bigEndian;
using archive_support::hex;
using qvr::BinaryPropertyListWriter;
using qvr::Data;
using Entry = BinaryPropertyListWriter::Entry;
using Object = BinaryPropertyListWriter::Object;

constexpr std::size_t kTrailer = 32;

std::string text(const Data& data) {
  return std::string(data.begin(), data.end());
}

// The bytes between the magic and the offset table.
std::string body(const std::optional<Data>& data) {
  EXPECT_TRUE(data.has_value());
  if (!data) return "";
  std::uint64_t table = 0;
  for (std::size_t i = data->size() - 8; i < data->size(); ++i)
    table = table << 8 | (*data)[i];
  return text(*data).substr(8, table - 8);
}

std::string trailer(const Data& data) {
  return hex(text(data).substr(data.size() - kTrailer));
}

std::string encodedInteger(std::int64_t number) {
  BinaryPropertyListWriter writer;
  return hex(body(writer.data(writer.integer(number))));
}

std::string encodedString(const std::string& string) {
  BinaryPropertyListWriter writer;
  return body(writer.data(writer.string(string)));
}

TEST(BinaryPropertyListWriter, IntegersTakeTheirNarrowestWidthAndNegativeOnesEightBytes) {
  EXPECT_EQ(encodedInteger(0), "1000");
  EXPECT_EQ(encodedInteger(255), "10ff");
  EXPECT_EQ(encodedInteger(256), "110100");
  EXPECT_EQ(encodedInteger(65535), "11ffff");
  EXPECT_EQ(encodedInteger(65536), "1200010000");
  EXPECT_EQ(encodedInteger(4294967295), "12ffffffff");
  EXPECT_EQ(encodedInteger(4294967296), "130000000100000000");
  EXPECT_EQ(encodedInteger(-1), "13ffffffffffffffff");
  EXPECT_EQ(encodedInteger(std::numeric_limits<std::int64_t>::max()), "137fffffffffffffff");
  EXPECT_EQ(encodedInteger(std::numeric_limits<std::int64_t>::min()), "138000000000000000");
}

TEST(BinaryPropertyListWriter, LongStringsThatDifferOnlyAtTheirEndsStayApart) {
  const std::string beginning(2000, 'a');
  BinaryPropertyListWriter writer;
  const Object one = writer.string(beginning + "1");
  const Object other = writer.string(beginning + "2");
  EXPECT_NE(one, other);
  EXPECT_EQ(writer.string(beginning + "1"), one);
}

// For a scope, puts a resource that has no memory where a host may put its own.
class NoDefaultMemory {
 public:
  NoDefaultMemory() : before_(std::pmr::set_default_resource(std::pmr::null_memory_resource())) {}
  ~NoDefaultMemory() { std::pmr::set_default_resource(before_); }
  NoDefaultMemory(const NoDefaultMemory&) = delete;
  NoDefaultMemory& operator=(const NoDefaultMemory&) = delete;

 private:
  std::pmr::memory_resource* before_;
};

TEST(BinaryPropertyListWriter, WritesLongListsWithoutTheHostsDefaultMemory) {
  const NoDefaultMemory none;
  BinaryPropertyListWriter writer;
  std::vector<Object> numbers;
  for (std::int64_t number = 0; number < 10'000; ++number)
    numbers.push_back(writer.integer(number));
  const std::optional<Data> data = writer.data(writer.array(numbers));
  ASSERT_TRUE(data.has_value());
  EXPECT_TRUE(text(*data).starts_with("bplist00"));
}

TEST(BinaryPropertyListWriter, RealsTakeEightBytes) {
  BinaryPropertyListWriter writer;
  EXPECT_EQ(hex(body(writer.data(writer.real(-0.5)))), "23bfe0000000000000");
}

TEST(BinaryPropertyListWriter, UIDsTakeTheirNarrowestWidth) {
  for (const auto& [uid, bytes] :
       {std::pair{0u, "8000"}, {255u, "80ff"}, {256u, "810100"}, {65536u, "8300010000"}}) {
    BinaryPropertyListWriter writer;
    EXPECT_EQ(hex(body(writer.data(writer.UID(uid)))), bytes);
  }
}

TEST(BinaryPropertyListWriter, LengthsFromFifteenOnFollowTheMarker) {
  EXPECT_EQ(encodedString(""), "\x50");
  EXPECT_EQ(encodedString(std::string(14, 'x')), "\x5E" + std::string(14, 'x'));
  EXPECT_EQ(encodedString(std::string(15, 'x')), "\x5F\x10\x0F" + std::string(15, 'x'));
  EXPECT_EQ(encodedString(std::string(256, 'x')),
            std::string("\x5F\x11\x01\x00", 4) + std::string(256, 'x'));
  EXPECT_EQ(encodedString(std::string(70000, 'x')),
            std::string("\x5F\x12\x00\x01\x11\x70", 6) + std::string(70000, 'x'));
}

TEST(BinaryPropertyListWriter, StringsOutsideASCIIAreBigEndianUTF16WithTheirLengthInUnits) {
  EXPECT_EQ(hex(encodedString("\xC3\xA9")), "6100e9");
  EXPECT_EQ(hex(encodedString("a\xF0\x9F\x94\x91")), "630061d83ddd11");
  EXPECT_EQ(hex(encodedString(std::string("\0\x7F", 2))), "52007f");
}

TEST(BinaryPropertyListWriter, TextThatIsNotUTF8IsNotWritten) {
  for (const char* malformed : {"\xFF", "\xC0\x80", "\xED\xA0\x80", "ab\xE2\x82"}) {
    BinaryPropertyListWriter writer;
    EXPECT_FALSE(writer.data(writer.string(malformed)));
    BinaryPropertyListWriter keyWriter;
    const Entry entries[] = {{malformed, keyWriter.integer(1)}};
    EXPECT_FALSE(keyWriter.data(keyWriter.dictionary(entries)));
  }
}

TEST(BinaryPropertyListWriter, ObjectsAreNumberedContainerThenKeysThenValues) {
  BinaryPropertyListWriter writer;
  const Object inner[] = {writer.string("x"), writer.string("y")};
  const Entry entries[] = {{"a", writer.array(inner)}, {"b", writer.string("z")}};
  const auto data = writer.data(writer.dictionary(entries));
  EXPECT_EQ(hex(body(data)),
            "d201020306"
            "5161"
            "5162"
            "a20405"
            "5178"
            "5179"
            "517a");
  ASSERT_TRUE(data.has_value());
  EXPECT_EQ(hex(text(*data)).substr(2 * (8 + 18), 2 * 7), "080d0f11141618");
  EXPECT_EQ(trailer(*data),
            "0000000000000101"
            "0000000000000007"
            "0000000000000000"
            "000000000000001a");
}

TEST(BinaryPropertyListWriter, EqualScalarsOfOneTypeAreOneObject) {
  BinaryPropertyListWriter writer;
  EXPECT_EQ(writer.string("x"), writer.string("x"));
  EXPECT_EQ(writer.string("\xC3\xA9"), writer.string("\xC3\xA9"));
  EXPECT_EQ(writer.integer(5), writer.integer(5));
  EXPECT_EQ(writer.real(5), writer.real(5));
  EXPECT_NE(writer.real(5), writer.integer(5));
  EXPECT_NE(writer.real(0.0), writer.real(-0.0));
  EXPECT_NE(writer.string("5"), writer.integer(5));
  EXPECT_NE(writer.UID(5), writer.UID(5));
}

TEST(BinaryPropertyListWriter, ObjectsThatTheTopDoesNotReachAreLeftOut) {
  BinaryPropertyListWriter writer;
  writer.string("unused");
  EXPECT_EQ(hex(body(writer.data(writer.integer(7)))), "1007");
}

TEST(BinaryPropertyListWriter, ReferencesWidenWithTheNumberOfObjects) {
  for (const auto& [count, width] : {std::pair{254u, "01"}, {255u, "02"}}) {
    BinaryPropertyListWriter writer;
    std::vector<Object> elements;
    for (unsigned i = 0; i < count; ++i)
      elements.push_back(writer.UID(i));
    const auto data = writer.data(writer.array(elements));  // the array is an object too
    ASSERT_TRUE(data.has_value());
    EXPECT_EQ(trailer(*data).substr(14, 2), width) << count;
  }
}

TEST(BinaryPropertyListWriter, OffsetsWidenWithTheLengthOfTheObjects) {
  // What stands before the offset table: the magic, the string's marker and length, the string.
  for (const auto& [length, width] :
       {std::pair{244u, "01"}, {245u, "02"}, {65523u, "02"}, {65524u, "04"}}) {
    BinaryPropertyListWriter writer;
    const auto data = writer.data(writer.string(std::string(length, 'x')));
    ASSERT_TRUE(data.has_value());
    EXPECT_EQ(trailer(*data).substr(12, 2), width) << length;
  }
}

}  // namespace
