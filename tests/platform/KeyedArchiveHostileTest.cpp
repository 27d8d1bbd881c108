// Damaged and hostile archives: nothing crashes, nothing false is read, and the work stays bounded.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "tests/platform/ArchiveSupport.h"

namespace {

using archive_support::archive;
using archive_support::arrayObject;
using archive_support::asciiObject;
using archive_support::bigEndian;
using archive_support::dictionaryObject;
using archive_support::Entries;
using archive_support::exampleArchive;
using archive_support::exampleEntries;
using archive_support::File;
using archive_support::fileWithOffsets;
using archive_support::integerObject;
using archive_support::read;
using archive_support::Reading;
using archive_support::uidObject;
using qvr::Data;
using qvr::TextSet;

constexpr std::uint64_t kHuge = 0x7FFFFFFFFFFFFFFF;

// Far above what linear work takes, sanitizers included, and far below what quadratic work would.
constexpr std::chrono::seconds kBound{10};

// A record whose values can be told from everything else in an archive.
Entries secretEntries() {
  Entries entries = exampleEntries();
  entries[0].second = "SECRET-access";
  entries[3].second =
      "SECRET-r\xC3\xA9"
      "fresh";
  entries[4].second = TextSet{"SECRET-mail", "SECRET-openid"};
  return entries;
}

// read() checks classes, encodings and the error's form.
void expectHarmless(const Data& data) {
  const Reading reading = read(data);
  EXPECT_EQ(reading.reason().find("SECRET"), std::string::npos);
}

template <class Work>
void expectBounded(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  EXPECT_LT(std::chrono::steady_clock::now() - start, kBound);
}

TEST(KeyedArchiveHostile, EveryTruncationIsRefused) {
  const Data whole = exampleArchive();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Reading reading = read(std::span(whole).first(length));
    EXPECT_FALSE(reading.succeeded) << length;
    EXPECT_FALSE(reading.decodeCalled) << length;
    EXPECT_EQ(reading.error->code(), 4864) << length;
  }
}

TEST(KeyedArchiveHostile, EveryByteChangedIsHarmless) {
  const Data whole = archive(secretEntries());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const int flip : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
      Data damaged = whole;
      damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ flip);
      expectHarmless(damaged);
    }
    for (const int value : {0x00, 0x0F, 0x14, 0x5F, 0x7F, 0x80, 0xAF, 0xDF, 0xFF}) {
      Data damaged = whole;
      damaged[i] = static_cast<std::uint8_t>(value);
      expectHarmless(damaged);
    }
  }
}

TEST(KeyedArchiveHostile, ManyBytesChangedAreHarmless) {
  std::mt19937 random(20010101);
  const Data whole = archive(secretEntries());
  for (int round = 0; round < 20000; ++round) {
    Data damaged = whole;
    for (auto changes = 1 + random() % 6; changes > 0; --changes) {
      damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    }
    if (random() % 4 == 0) damaged.erase(damaged.begin() + random() % 64);
    expectHarmless(damaged);
  }
}

// The objects of an archive whose root has one entry, "QVR.grantedScopes" with the value that a
// test puts at kValue; indexes name objects of the file, and its own follow kFirst.
class HostileFile {
 public:
  static constexpr std::uint64_t kNull = 12;
  static constexpr std::uint64_t kRoot = 13;
  static constexpr std::uint64_t kClass = 14;
  static constexpr std::uint64_t kValue = 15;
  static constexpr std::uint64_t kClassUID = 16;
  static constexpr std::uint64_t kMembers = 17;
  static constexpr std::uint64_t kFirst = 24;

  // `width` is that of references.
  explicit HostileFile(std::size_t width) : width_(width), objects_(kFirst) {
    objects_[0] = dictionaryObject({1, 2, 3, 4}, {5, 6, 7, 8}, width);
    objects_[1] = asciiObject("$archiver");
    objects_[2] = asciiObject("$version");
    objects_[3] = asciiObject("$objects");
    objects_[4] = asciiObject("$top");
    objects_[5] = asciiObject("NSKeyedArchiver");
    objects_[6] = integerObject(100000, 4);
    objects_[8] = dictionaryObject({9}, {10}, width);
    objects_[9] = asciiObject("root");
    objects_[10] = uidObject(1);
    objects_[11] = asciiObject("$class");
    objects_[kNull] = asciiObject("$null");
    objects_[kRoot] = dictionaryObject({22, 11}, {23, kClassUID}, width);
    objects_[kClass] = dictionaryObject({18, 19}, {20, 21}, width);
    objects_[kValue] = dictionaryObject({kMembers, 11}, {22, kClassUID}, width);
    objects_[kClassUID] = uidObject(2);
    objects_[kMembers] = asciiObject("NS.objects");
    objects_[18] = asciiObject("$classname");
    objects_[19] = asciiObject("$classes");
    objects_[20] = asciiObject("QVROAuth2Token");
    objects_[21] = arrayObject({20, kSetName}, width);
    objects_[22] = asciiObject("QVR.grantedScopes");
    objects_[23] = uidObject(3);
    objects_.push_back(asciiObject("NSSet"));
    setTable({kNull, kRoot, kClass, kValue});
  }

  std::string& operator[](std::uint64_t index) { return objects_[index]; }
  std::uint64_t add(std::string object) {
    objects_.push_back(std::move(object));
    return objects_.size() - 1;
  }
  void setTable(const std::vector<std::uint64_t>& table) { objects_[7] = array(table); }
  void setMembers(const std::vector<std::uint64_t>& members) {
    objects_[kValue] = dictionaryObject({kMembers, 11}, {add(array(members)), kClassUID}, width_);
  }
  std::string array(const std::vector<std::uint64_t>& references) const {
    return arrayObject(references, width_);
  }
  std::size_t count() const { return objects_.size(); }

  Data data() const {
    const Data bytes = File{objects_, 4, width_}.data();
    EXPECT_LE(bytes.size(), std::size_t{1} << 20) << "it would be refused for its length";
    return bytes;
  }

 private:
  static constexpr std::uint64_t kSetName = kFirst;  // the token's class is a set too, to be short
  std::size_t width_;
  std::vector<std::string> objects_;
};

TEST(KeyedArchiveHostile, AHostileFileIsSoundButForItsHostility) {
  HostileFile file(1);
  const std::uint64_t mail = file.add(asciiObject("mail"));
  file.setMembers({mail});
  const Reading reading = read(file.data());
  EXPECT_TRUE(reading.succeeded) << reading.reason();
  EXPECT_EQ(reading.entries.at(4).second, qvr::CodedValue(TextSet{"mail"}));
}

TEST(KeyedArchiveHostile, AMemberNamedOftenIsBuiltOnce) {
  HostileFile file(2);
  const std::string scope(300000, 'x');
  const std::uint64_t longScope = file.add(asciiObject(scope));
  file.setMembers(std::vector<std::uint64_t>(300000, longScope));
  expectBounded([&] {
    const Reading reading = read(file.data());
    EXPECT_TRUE(reading.succeeded) << reading.reason();
    EXPECT_EQ(reading.entries.at(4).second, qvr::CodedValue(TextSet{scope}));
  });
}

TEST(KeyedArchiveHostile, ManyObjectsOfOneClassWithALongDescriptionTakeLinearWork) {
  HostileFile file(4);
  std::vector<std::uint64_t> keys(20000, HostileFile::kNull);
  keys.insert(keys.end(), {18, 19});
  std::vector<std::uint64_t> values(20000, HostileFile::kNull);
  values.insert(values.end(), {20, 21});
  file[HostileFile::kClass] = dictionaryObject(keys, values, 4);
  for (int i = 0; i < 40000; ++i)
    file.add(dictionaryObject({11}, {HostileFile::kClassUID}, 4));
  file.setMembers({});
  expectBounded([&] { EXPECT_TRUE(read(file.data()).succeeded); });
}

TEST(KeyedArchiveHostile, AHugeDictionaryOfOneLongKeyTakesLinearWork) {
  HostileFile file(4);
  const std::uint64_t key = file.add("\x6F" + integerObject(100000, 4) + std::string(200000, '\1'));
  std::vector<std::uint64_t> keys(60000, key);
  std::vector<std::uint64_t> values(60000, HostileFile::kClassUID);
  keys.push_back(11);
  values.push_back(HostileFile::kClassUID);
  file[HostileFile::kRoot] = dictionaryObject(keys, values, 4);
  expectBounded([&] {
    const Reading reading = read(file.data());
    EXPECT_TRUE(reading.succeeded) << reading.reason();
    EXPECT_EQ(reading.entries.at(4).second, qvr::CodedValue());
  });
}

TEST(KeyedArchiveHostile, ArraysThatContainThemselvesAreNotFollowed) {
  HostileFile file(1);
  const std::uint64_t first = file.count();
  file.add(file.array({first, first + 1}));
  file.add(file.array({first, first}));
  file.setMembers({first});
  EXPECT_FALSE(read(file.data()).succeeded);
  HostileFile deep(4);
  const std::uint64_t start = deep.count();
  for (std::uint64_t i = 0; i < 60000; ++i)
    deep.add(deep.array({start + i + 1, start + i + 1}));
  deep.add(deep.array({}));
  deep.setMembers({start});
  expectBounded([&] { EXPECT_FALSE(read(deep.data()).succeeded); });
}

TEST(KeyedArchiveHostile, ManyOffsetsOfOneLongArrayAreRefused) {
  const std::string body = arrayObject(std::vector<std::uint64_t>(400000, 0), 1);
  const std::vector<std::uint64_t> offsets(100000, 8);
  expectBounded([&] { EXPECT_FALSE(read(fileWithOffsets(body, offsets, 4, 1)).succeeded); });
}

TEST(KeyedArchiveHostile, LengthsAndCountsThatOverflowAreRefused) {
  for (const std::uint64_t length :
       {kHuge, kHuge + 1, ~std::uint64_t{0}, std::uint64_t{1} << 61, std::uint64_t{1} << 32}) {
    for (const char* marker : {"\x4F", "\x5F", "\x6F", "\xAF", "\xCF", "\xDF"}) {
      HostileFile file(8);
      file[HostileFile::kNull] = marker + integerObject(length, 8);
      const Reading reading = read(file.data());
      EXPECT_FALSE(reading.decodeCalled) << marker << length;
    }
  }
  HostileFile wide(1);
  wide[HostileFile::kNull] = "\x5F\x14" + bigEndian(0, 8) + bigEndian(5, 8) + "$null";
  EXPECT_FALSE(read(wide.data()).decodeCalled);
}

TEST(KeyedArchiveHostile, UIDsBeyondTheTableAreRefusedAtEveryWidth) {
  for (const std::uint64_t uid : {std::uint64_t{4}, std::uint64_t{1} << 32, kHuge,
                                  ~std::uint64_t{0}, (std::uint64_t{1} << 32) + 1}) {
    HostileFile file(1);
    file[10] = uidObject(uid, 8);
    EXPECT_FALSE(read(file.data()).decodeCalled) << uid;
  }
  HostileFile sixteen(1);
  sixteen[10] = "\x8F" + bigEndian(0, 8) + bigEndian(1, 8);
  EXPECT_FALSE(read(sixteen.data()).decodeCalled);
}

}  // namespace
