// qvr-oauth2 token when the record is due, the server misbehaves or the keychain refuses.

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/e2e/CommandTest.h"

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

class CommandTokenTest : public CommandTest {
 protected:
  // The one item file, whose content stands for the record.
  std::string itemBytes() {
    std::string all;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(folder.file("data/qvr-oauth2"))) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      all.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return all;
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, CommandTokenTest, testing::Values("Google", "Microsoft"));

TEST_P(CommandTokenTest, ADueTokenIsRefreshedOnceAndKept) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  const Result first = run({"token", provider(), kUser});
  EXPECT_EQ(first.status, 0) << first.error;
  const Result second = run({"token", provider(), kUser});
  EXPECT_EQ(second.output, first.output) << "a new process serves what was stored";
  EXPECT_EQ(counterpart.count(side(), "refreshes"), 1);
}

TEST_P(CommandTokenTest, ForceRefreshReplacesAnUnexpiredToken) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const Result before = run({"token", provider(), kUser});
  const Result forced = run({"token", provider(), kUser, "--force-refresh"});
  EXPECT_EQ(forced.status, 0) << forced.error;
  EXPECT_NE(forced.output, before.output);
  EXPECT_EQ(run({"token", provider(), kUser}).output, forced.output);
  EXPECT_EQ(counterpart.count(side(), "refreshes"), 1);
}

TEST_P(CommandTokenTest, NothingStoredExitsWith3) {
  const Result result = run({"token", provider(), "nobody@example.com"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, HasSubstr("sign-in"));
}

TEST_P(CommandTokenTest, AnAnswerWithASpaceInTheRefreshTokenEndsInNoException) {
  ASSERT_NO_FATAL_FAILURE(signInWithADueToken());
  counterpart.fault(side(), "token", "status",
                    R"(,"status":200,"body":"{\"access_token\":\"a\",\"token_type\":\"Bearer\",)"
                    R"(\"expires_in\":1,\"refresh_token\":\"two words\"}")");
  EXPECT_EQ(run({"token", provider(), kUser}).status, 0);
  const Result next = run({"token", provider(), kUser});
  EXPECT_GE(next.status, 1);
  EXPECT_LE(next.status, 5) << next.error;
  EXPECT_NE(next.error, "");
}

TEST_P(CommandTokenTest, ADamagedItemIsReportedAndNotDeleted) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(folder.file("data/qvr-oauth2"))) {
    if (entry.is_regular_file() && entry.file_size() > 200) {
      std::filesystem::resize_file(entry.path(), entry.file_size() - 1);
    }
  }
  const std::string before = itemBytes();
  const Result result = run({"token", provider(), kUser});
  EXPECT_EQ(result.status, 1) << result.error;
  EXPECT_NE(result.error, "");
  EXPECT_EQ(itemBytes(), before);
}

TEST_P(CommandTokenTest, ServingAStoredTokenLoadsNeitherCurlNorDBus) {
  ASSERT_NO_FATAL_FAILURE(signIn());
  const Result result = run({"token", provider(), kUser}, {{"LD_DEBUG", "files"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.error, HasSubstr("libsodium")) << "the loader tells what it loads";
  for (const char* library : {"libcurl", "libssl", "libsystemd", "libdbus"}) {
    EXPECT_THAT(result.error, Not(HasSubstr(library)));
  }
}

}  // namespace
}  // namespace e2e
