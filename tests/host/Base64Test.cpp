// base64 in the standard alphabet.
#include <gtest/gtest.h>

#include <string>

#include "host/Base64.h"
#include "tests/host/DecodedBase64.h"

namespace host_test {
namespace {

using namespace std::string_literals;

TEST(Base64, IsTheTestVectorsOfRFC4648) {
  EXPECT_EQ(host::base64(""), "");
  EXPECT_EQ(host::base64("f"), "Zg==");
  EXPECT_EQ(host::base64("fo"), "Zm8=");
  EXPECT_EQ(host::base64("foo"), "Zm9v");
  EXPECT_EQ(host::base64("foob"), "Zm9vYg==");
  EXPECT_EQ(host::base64("fooba"), "Zm9vYmE=");
  EXPECT_EQ(host::base64("foobar"), "Zm9vYmFy");
}

TEST(Base64, HasTheTwoCharactersInWhichTheAlphabetsDiffer) {
  EXPECT_EQ(host::base64("\xfb\xff\xbf"), "+/+/");
}

TEST(Base64, IsReadByAnotherProgramWhateverTheBytes) {
  std::string bytes;
  for (int i = 0; i < 1000; ++i)
    bytes += static_cast<char>(i * i % 257);
  EXPECT_EQ(decodedBase64(host::base64(bytes)), bytes);
  EXPECT_EQ(decodedBase64(host::base64("\0\x01\xff"s)), "\0\x01\xff"s);
}

TEST(Base64, IsOneLineHoweverLong) {
  EXPECT_EQ(host::base64(std::string(10'000, 'x')).find('\n'), std::string::npos);
}

}  // namespace
}  // namespace host_test
