// Setting one key of the configuration file: every other byte stays.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/Configuration.h"
#include "host/ConfigurationEdit.h"
#include "tests/support/ChildProcess.h"

namespace host {
namespace {

using testing::HasSubstr;

struct Edit {
  const char* name;
  std::string before;
  std::string after;
};

std::string nameOf(const testing::TestParamInfo<Edit>& info) {
  return info.param.name;
}

class ConfigurationEditTest : public testing::TestWithParam<Edit> {};

TEST_P(ConfigurationEditTest, SetsTheKindAndKeepsEveryOtherByte) {
  EXPECT_EQ(withKeychainKind(GetParam().before, kSecretService), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ConfigurationEditTest,
    testing::Values(
        Edit{"NoText", "", "[keychain]\nkind = \"secret-service\"\n"},
        Edit{"NoSection", "a = \"b\" # why\n",
             "a = \"b\" # why\n\n[keychain]\nkind = \"secret-service\"\n"},
        Edit{"NoLastLineEnd", "a = \"b\"", "a = \"b\"\n\n[keychain]\nkind = \"secret-service\"\n"},
        Edit{"OtherSectionLast", "[keychain] # here\n# note\ndirectory = \"d\"\n[google]\n",
             "[keychain] # here\nkind = \"secret-service\"\n# note\ndirectory = \"d\"\n[google]\n"},
        Edit{"SectionWithoutLineEnd", "[keychain]", "[keychain]\nkind = \"secret-service\"\n"},
        Edit{"IndentedSection", "  [ keychain ]\n  key_file = \"k\"\n",
             "  [ keychain ]\nkind = \"secret-service\"\n  key_file = \"k\"\n"},
        Edit{"EmptyValue", "[keychain]\nkind   = \"\"   # empty\n",
             "[keychain]\nkind   = \"secret-service\"   # empty\n"},
        Edit{"OtherValue", "[keychain]\nkind = 'encrypted-file'\n",
             "[keychain]\nkind = \"secret-service\"\n"},
        Edit{"SameValue", "[keychain]\nkind = \"secret-service\"\n",
             "[keychain]\nkind = \"secret-service\"\n"},
        Edit{"ValueOfManyLines", "[keychain]\nkind = \"\"\"\nencrypted-file\"\"\"\nkey_file=\"\"\n",
             "[keychain]\nkind = \"secret-service\"\nkey_file=\"\"\n"},
        Edit{"WindowsLineEnds", "a = \"b\"\r\n[keychain]\r\nkey_file = \"\"\r\n",
             "a = \"b\"\r\n[keychain]\r\nkind = \"secret-service\"\r\nkey_file = \"\"\r\n"},
        Edit{"NoSectionWithWindowsLineEnds", "a = \"b\"\r\n",
             "a = \"b\"\r\n\r\n[keychain]\r\nkind = \"secret-service\"\r\n"},
        Edit{
            "InlineTable", "# \xC3\xA9\nkeychain = { directory = \"\xC3\xA9\" } # x\n",
            "# \xC3\xA9\nkeychain = { kind = \"secret-service\", directory = \"\xC3\xA9\" } # x\n"},
        Edit{"EmptyInlineTable", "keychain = {}\n", "keychain = { kind = \"secret-service\" }\n"},
        Edit{
            "InlineTableWithTheKey",
            "keychain = { directory = \"\xE2\x82\xAC\", kind = \"\", key_file = \"\" }\n",
            "keychain = { directory = \"\xE2\x82\xAC\", kind = \"secret-service\", key_file = \"\" "
            "}\n"},
        Edit{"DottedKey", "keychain.directory = \"d\"\nx = \"y\"\n",
             "keychain.kind = \"secret-service\"\nkeychain.directory = \"d\"\nx = \"y\"\n"},
        Edit{"DottedKind", "keychain.kind = \"\"\nx = \"y\"\n",
             "keychain.kind = \"secret-service\"\nx = \"y\"\n"},
        Edit{"ByteOrderMark", "\xEF\xBB\xBFkeychain.kind = \"\"\n",
             "\xEF\xBB\xBFkeychain.kind = \"secret-service\"\n"},
        Edit{
            "LinesThatLookLikeIt", "x = \"\"\"\n[keychain]\nkind = \"\"\n\"\"\"\n[keychain]\n",
            "x = \"\"\"\n[keychain]\nkind = \"\"\n\"\"\"\n[keychain]\nkind = \"secret-service\"\n"},
        Edit{"SectionBelow", "[keychain.extra]\nx = \"y\"\n",
             "[keychain.extra]\nx = \"y\"\n\n[keychain]\nkind = \"secret-service\"\n"}),
    nameOf);

TEST(ConfigurationEdit, RefusesWhatIsNoTOMLOrHasNoPlaceForTheKey) {
  EXPECT_FALSE(withKeychainKind("[keychain\n", kSecretService));
  EXPECT_FALSE(withKeychainKind("keychain = \"text\"\n", kSecretService));
  EXPECT_FALSE(withKeychainKind("[[keychain]]\n", kSecretService));
}

class ConfigurationFileEditTest : public testing::Test {
 protected:
  static std::string textOf(const std::string& path) {
    mode_t mode = 0;
    return std::get<std::string>(readConfigurationText(path, &mode));
  }
  const support::TemporaryFolder folder;
};

TEST_F(ConfigurationFileEditTest, KeepsTheModeAndTheSymbolicLink) {
  const std::string target = folder.write("target.toml", "# kept\n");
  ASSERT_EQ(chmod(target.c_str(), 0640), 0);
  ASSERT_EQ(symlink("target.toml", folder.file("config.toml").c_str()), 0);
  ASSERT_FALSE(writeKeychainKind(folder.file("config.toml"), kEncryptedFile));
  EXPECT_EQ(textOf(target), "# kept\n\n[keychain]\nkind = \"encrypted-file\"\n");
  struct stat status = {};
  ASSERT_EQ(lstat(folder.file("config.toml").c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0640u);
}

TEST_F(ConfigurationFileEditTest, SaysWhatToWriteWhereItFindsNoPlace) {
  const std::string path = folder.write("config.toml", "keychain = \"text\"\n");
  const auto failure = writeKeychainKind(path, kEncryptedFile);
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->sentence,
              HasSubstr("write kind = \"encrypted-file\" under [keychain] yourself"));
  EXPECT_EQ(textOf(path), "keychain = \"text\"\n");
}

TEST_F(ConfigurationFileEditTest, FailsForAFileThatIsGone) {
  EXPECT_TRUE(writeKeychainKind(folder.file("none.toml"), kEncryptedFile));
}

}  // namespace
}  // namespace host
