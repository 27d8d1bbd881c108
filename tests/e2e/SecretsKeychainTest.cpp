// A keychain that is damaged, locked or gone gives no secret away, and neither does signing out.

#include <filesystem>

#include "tests/e2e/SecretsTest.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

class SecretsKeychainTest : public SecretsTest {
 protected:
  const std::string keyFile = folder.file("config/qvr-oauth2/key");
  const std::string items = folder.file("data/qvr-oauth2/items");

  // What works with the stored item, and what looks at the keychain.
  void expectFailures() {
    bothWays([this] {
      expectFailure(watch(tokenCommand()));
      expectFailure(watch(tokenCommand({"--force-refresh"})));
      EXPECT_NE(watch({"status", provider(), kUser}).status, 0);
      watch({"accounts"});
      watch({"doctor"});
    });
  }

  // The place of the one item.
  fs::path item() const {
    fs::path found;
    for (const auto& entry : fs::recursive_directory_iterator(items)) {
      if (entry.is_regular_file() && entry.file_size() > 200) found = entry.path();
    }
    return found;
  }
};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsKeychainTest, testing::Values("Google"));

TEST_P(SecretsKeychainTest, WhoseItemIsDamaged) {
  signInWatched();
  fs::resize_file(item(), fs::file_size(item()) - 1);
  expectFailures();
}

TEST_P(SecretsKeychainTest, WhoseKeyIsAnother) {
  signInWatched();
  keepSecret(kKey, contentOf("config/qvr-oauth2/key"));
  folder.write("config/qvr-oauth2/key", std::string(32, 'k'));
  expectFailures();
}

TEST_P(SecretsKeychainTest, ThatIsOpenToOthers) {
  signInWatched();
  fs::permissions(keyFile, fs::perms::others_read, fs::perm_options::add);
  expectFailures();
  fs::permissions(keyFile, fs::perms::others_read, fs::perm_options::remove);
  fs::permissions(items, fs::perms::others_all, fs::perm_options::add);
  expectFailures();
}

TEST_P(SecretsKeychainTest, WhoseFolderIsNone) {
  signInWatched();
  fs::rename(items, folder.file("elsewhere"));
  folder.write("data/qvr-oauth2/items", "");
  expectFailures();
}

class SecretsPassphraseTest : public SecretsKeychainTest {
 protected:
  SecretsPassphraseTest() {
    changeConfiguration("[endpoints]",
                        "[keychain]\nkind = \"encrypted-file\"\nprotection = \"passphrase\"\n"
                        "passphrase_command = \"cat '" +
                            folder.file("passphrase") + "'\"\n[endpoints]");
    keepSecret(kPassphrase, right);
    keepSecret(kPassphrase, wrong);
    folder.write("passphrase", right + "\n");
  }

  static RunOptions from(const std::string& file) {
    RunOptions options;
    options.redirections = "3<'" + file + "'";
    return options;
  }

  const std::string right = "staple/Zq8+ 4vK%7e&horse=";
  const std::string wrong = "battery/Wq7+ 1bN%3a&correct=";
};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsPassphraseTest, testing::Values("Google"));

TEST_P(SecretsPassphraseTest, ThatIsRightOrWrong) {
  signInWatched();
  bothWays([this] {
    EXPECT_EQ(watch(tokenCommand()).status, 0);
    EXPECT_EQ(watch(tokenCommand({"--passphrase-fd", "3"}), from(folder.file("passphrase"))).status,
              0);
    folder.write("passphrase", wrong + "\n");
    expectFailure(watch(tokenCommand()));
    expectFailure(watch(tokenCommand({"--passphrase-fd", "3"}), from(folder.file("passphrase"))));
    folder.write("passphrase", right + "\n");
  });
}

TEST_P(SecretsPassphraseTest, ThatCannotBeHad) {
  signInWatched();
  changeConfiguration("cat '", "echo \"$HOME\" >&2; cat 2>/dev/null '/none");
  bothWays([this] {
    expectFailure(watch(tokenCommand()), 1);
    expectFailure(watch(tokenCommand({"--passphrase-fd", "3"}), from("/dev/null")), 1);
  });
}

class SecretsSignOutTest : public SecretsTest {};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsSignOutTest, testing::Values("Google", "Microsoft"));

TEST_P(SecretsSignOutTest, WithAndWithoutRevoking) {
  bothWays([this] {
    signInWatched();
    EXPECT_EQ(watch({"sign-out", provider(), kUser}).status, 0);
    signInWatched();
    EXPECT_EQ(watch({"sign-out", provider(), kUser, "--local"}).status, 0);
    expectFailure(watch({"sign-out", provider(), kUser}), 3);
    expectFailure(watch(tokenCommand()), 3);
  });
}

// Microsoft has nothing that could refuse.
class SecretsRevocationTest : public SecretsTest {};
INSTANTIATE_TEST_SUITE_P(Providers, SecretsRevocationTest, testing::Values("Google"));

TEST_P(SecretsRevocationTest, ThatTheServerRefuses) {
  bothWays([this] {
    for (const auto& [kind, members] : echoing({"token"})) {
      SCOPED_TRACE(kind + members);
      if (watch({"status", provider(), kUser}).status != 0) signInWatched();
      counterpart.fault(side(), "revoke", kind, members);
      const Result result = watch({"sign-out", provider(), kUser});
      EXPECT_NE(result.error, "");
      EXPECT_EQ(counterpart.count(side(), "revocations"), 1);
      counterpart.post("/reset", "{}");
    }
  });
}

}  // namespace
}  // namespace e2e
