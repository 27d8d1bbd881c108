#include <gtest/gtest.h>

#include <algorithm>

#include "src/platform/Crypto.h"
#include "src/ports/ByteFields.h"
#include "src/ports/SecretBytes.h"
#include "tests/ports/helpers/KeychainQueries.h"

namespace ports_test {
namespace {

std::string hex(std::span<const std::uint8_t> digest) {
  std::string text;
  for (const std::uint8_t byte : digest) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

TEST(SHA256Test, AgreesWithThePublishedExamples) {
  EXPECT_EQ(hex(qvr::SHA256({})),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hex(qvr::SHA256(bytes("abc"))),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(qvr::SHA256(bytes("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"))),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Base64EncodingTest, AgreesWithRFC4648Section10) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [text, encoded] : cases)
    EXPECT_EQ(qvr::base64Encoded(bytes(text)), encoded);
}

TEST(Base64EncodingTest, UsesTheStandardAlphabetOnOneLine) {
  EXPECT_EQ(qvr::base64Encoded(bytes("\xfb\xff\xfe")), "+//+");
  const std::string text = qvr::base64Encoded(qvr::Data(3000, 0x55));
  EXPECT_EQ(text.size(), 4000u);
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(WipeTest, OverwritesTheMemory) {
  qvr::Data secret = bytes("secret");
  qvr::wipe(secret.data(), 3);
  EXPECT_EQ(secret, bytes(std::string_view("\0\0\0ret", 6)));
  qvr::wipe(nullptr, 0);
}

TEST(SecretBytesTest, HoldsWhatIsWrittenAlsoAfterAMove) {
  qvr::SecretBytes secret(32);
  std::ranges::fill(secret.bytes(), std::uint8_t{7});
  const qvr::SecretBytes moved(std::move(secret));
  EXPECT_EQ(moved.size(), 32u);
  EXPECT_EQ(std::count(moved.data(), moved.data() + moved.size(), 7), 32);
  EXPECT_EQ(qvr::SecretBytes(0).size(), 0u);
}

TEST(SecretBytesTest, MemoryThatIsNotThereIsAnError) {
  EXPECT_THROW(qvr::SecretBytes(SIZE_MAX / 2), std::bad_alloc);
}

TEST(FieldReaderTest, ReadsWhatWasAppendedAndNothingBeyond) {
  qvr::Data data;
  qvr::appendNumber(data, std::uint32_t{0x01020304});
  qvr::appendNumber(data, std::uint64_t{0xf0e0d0c0b0a09080});
  qvr::appendBytes(data, qvr::bytesOf("xyz"));
  EXPECT_EQ(data.front(), 0x04);  // little-endian
  qvr::FieldReader reader(data);
  EXPECT_EQ(reader.number<std::uint32_t>(), 0x01020304u);
  EXPECT_EQ(reader.number<std::uint64_t>(), 0xf0e0d0c0b0a09080u);
  EXPECT_FALSE(reader.bytes(4));
  EXPECT_FALSE(reader.number<std::uint32_t>());
  EXPECT_EQ(reader.rest().size(), 3u);
  EXPECT_TRUE(reader.bytes(3));
  EXPECT_TRUE(reader.bytes(0));
  EXPECT_FALSE(reader.bytes(1));
}

}  // namespace
}  // namespace ports_test
