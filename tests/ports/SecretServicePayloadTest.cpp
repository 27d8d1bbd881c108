// The text that an item holds.

#include <gtest/gtest.h>

#include "src/ports/SecretServicePayload.h"

namespace ports_test {
namespace {

std::string encoded(std::string_view data) {
  const qvr::SecretBytes payload = qvr::encodeSecretServicePayload(qvr::bytesOf(data));
  return {payload.data(), payload.data() + payload.size()};
}

std::optional<std::string> decoded(std::string_view payload) {
  const auto data = qvr::decodeSecretServicePayload(qvr::bytesOf(payload));
  if (!data) return std::nullopt;
  return std::string(data->begin(), data->end());
}

TEST(SecretServicePayloadTest, IsMarkChecksumAndBase64) {
  EXPECT_EQ(encoded("secret"), "QVR1:2bb80d53:c2VjcmV0");
  EXPECT_EQ(encoded(""), "QVR1:e3b0c442:");
}

TEST(SecretServicePayloadTest, GivesTheBytesBack) {
  std::string bytes;
  for (int size = 0; size < 300; ++size) {
    EXPECT_EQ(decoded(encoded(bytes)), bytes);
    bytes.push_back(static_cast<char>(size * 37));
  }
}

TEST(SecretServicePayloadTest, EveryCutAndEveryChangedCharacterIsSeen) {
  const std::string payload = encoded("a secret");
  for (std::size_t index = 0; index < payload.size(); ++index) {
    EXPECT_EQ(decoded(payload.substr(0, index)), std::nullopt) << index;
    std::string changed = payload;
    changed[index] = changed[index] == 'A' ? 'B' : 'A';
    EXPECT_EQ(decoded(changed), std::nullopt) << index;
  }
  EXPECT_EQ(decoded(payload + "\n"), std::nullopt);
  EXPECT_EQ(decoded(payload + "AAAA"), std::nullopt);
}

TEST(SecretServicePayloadTest, DataHasOneTextOnly) {
  const std::string of[] = {encoded("1"), encoded("12"), encoded("123")};
  ASSERT_TRUE(of[0].ends_with(":MQ=="));
  ASSERT_TRUE(of[1].ends_with(":MTI="));
  const std::string heads[] = {of[0].substr(0, 14), of[1].substr(0, 14), of[2].substr(0, 14)};
  EXPECT_EQ(decoded(heads[0] + "MQ=="), "1");
  EXPECT_EQ(decoded(heads[1] + "MTI="), "12");
  EXPECT_EQ(decoded(heads[2] + "MTIz"), "123");
  // The same bytes with unused bits, without padding, or with what only some decoders skip.
  for (const char* other : {"MR==", "MQ", "MQ=", "MQ===", "MQ=A", "=MQ=", "MQ==\n", " MQ=="})
    EXPECT_EQ(decoded(heads[0] + other), std::nullopt) << other;
  for (const char* other : {"MTJ=", "MTI", "MTI==", "MT=I"})
    EXPECT_EQ(decoded(heads[1] + other), std::nullopt) << other;
  for (const char* other : {"MTIz====", "MTI z", "MTIz=", "\x80TIz", "MTI-"})
    EXPECT_EQ(decoded(heads[2] + other), std::nullopt) << other;
}

TEST(SecretServicePayloadTest, NothingIsEncodedByPaddingAlone) {
  const std::string head = encoded("");
  for (const char* other : {"====", "A===", "==", "="})
    EXPECT_EQ(decoded(head + other), std::nullopt) << other;
}

}  // namespace
}  // namespace ports_test
