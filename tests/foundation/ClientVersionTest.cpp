// What the umbrella header says about the library itself.

#include <gmock/gmock.h>

#include "QVROAuth2Client/QVROAuth2Client.h"

namespace {

TEST(ClientVersionTest, TheVersionNumberIsOne) {
  static_assert(std::is_same_v<decltype(QVROAuth2ClientVersionNumber), const double>);
  EXPECT_EQ(QVROAuth2ClientVersionNumber, 1.0);
}

TEST(ClientVersionTest, TheVersionStringIsAMarkerThatNamesTheLibrary) {
  EXPECT_THAT(std::string(QVROAuth2ClientVersionString), testing::StartsWith("@(#)"));
  EXPECT_THAT(std::string(QVROAuth2ClientVersionString), testing::HasSubstr("QVROAuth2Client"));
  EXPECT_THAT(std::string(QVROAuth2ClientVersionString),
              testing::HasSubstr(QVROAUTH2CLIENT_VERSION));
}

}  // namespace
