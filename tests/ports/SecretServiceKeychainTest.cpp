// What the Secret Service keychain stores, how others find it, and what it makes of odd items.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "src/ports/EncryptedFileKeychainFiles.h"
#include "tests/ports/helpers/SecretServiceTest.h"

namespace ports_test {
namespace {

using qvr::KeychainItemName;

class SecretServiceKeychainTest : public SecretServiceTest {
 protected:
  Keyring::Item stored() {
    return service_.with([](Keyring& keyring) { return keyring.items.begin()->second; });
  }
  std::vector<KeychainItemName> list() {
    std::vector<KeychainItemName> names;
    EXPECT_EQ(keychain_->list(&names), qvr::errSecSuccess);
    return names;
  }
};

TEST_F(SecretServiceKeychainTest, ItemHasTheTwoAttributesALabelAndText) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  const std::map<std::string, std::string> attributes = {{"service", kService},
                                                         {"account", "user@example.com"}};
  EXPECT_EQ(stored().attributes, attributes);
  EXPECT_EQ(stored().label, "OAuth 2.0 token of user@example.com (Google.OAuth2Token)");
  EXPECT_EQ(stored().contentType, "text/plain");
  EXPECT_EQ(stored().secret, "QVR1:2bb80d53:c2VjcmV0");
}

TEST_F(SecretServiceKeychainTest, UpdateKeepsTheItemAndReplacesItsValue) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  ASSERT_EQ(item_.update("another"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "another");
  EXPECT_EQ(countOf("CreateItem"), 1);
  EXPECT_EQ(countOf("SetSecret"), 1);
}

TEST_F(SecretServiceKeychainTest, OneConnectionAndSessionServeAllCalls) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  ASSERT_EQ(item_.text(), "secret");
  ASSERT_EQ(item_.remove(), qvr::errSecSuccess);
  EXPECT_EQ(countOf("OpenSession"), 1);
}

TEST_F(SecretServiceKeychainTest, ColdReadIsFourCalls) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) { keyring.calls.clear(); });
  const auto another = open(options());
  EXPECT_EQ((Item{*another, kService}.text()), "secret");
  const std::vector<std::string> calls = {"OpenSession", "Locked", "SearchItems", "GetSecret"};
  EXPECT_EQ(service_.with([](Keyring& keyring) { return keyring.calls; }), calls);
}

TEST_F(SecretServiceKeychainTest, EveryFurtherReadIsThreeCallsWhoseFirstLooksAtTheLock) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) { keyring.calls.clear(); });
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(item_.text(), "secret");
  const std::vector<std::string> calls = {"Locked", "SearchItems", "GetSecret",
                                          "Locked", "SearchItems", "GetSecret"};
  EXPECT_EQ(service_.with([](Keyring& keyring) { return keyring.calls; }), calls);
}

TEST_F(SecretServiceKeychainTest, SessionsOutputMayBeOfAnyType) {
  service_.with([](Keyring& keyring) { keyring.opensWithBytes = true; });
  EXPECT_EQ(item_.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServiceKeychainTest, NothingIsConnectedBeforeTheFirstCall) {
  const auto unused = open(options());
  EXPECT_EQ(countOf("OpenSession"), 0);
}

TEST_F(SecretServiceKeychainTest, AccountsOfAnyText) {
  const std::string accounts[] = {"",
                                  "with spaces and\ttabs",
                                  "\"double\" and 'single' quotes \\",
                                  "/slashes/../..",
                                  "J\u00fcrgen@b\u00fccher.example \u2709 \U0001f511",
                                  "line\nbreak",
                                  std::string(1000, 'x')};
  for (const std::string& account : accounts) {
    ASSERT_EQ((Item{*keychain_, kService, account}.add("of " + account)), qvr::errSecSuccess);
  }
  for (const std::string& account : accounts) {
    EXPECT_EQ((Item{*keychain_, kService, account}.text()), "of " + account);
  }
  std::vector<KeychainItemName> expected;
  for (const std::string& account : accounts)
    expected.push_back({kService, account});
  std::ranges::sort(expected);
  EXPECT_EQ(list(), expected);
}

TEST_F(SecretServiceKeychainTest, NamesThatTheBusCannotCarryAreRefused) {
  for (const std::string& bad : {std::string("a\0b", 3), std::string("\xff")}) {
    for (const Item& item : {Item{*keychain_, kService, bad}, Item{*keychain_, bad, "account"}}) {
      EXPECT_EQ(item.add("x"), qvr::errSecParam);
      EXPECT_EQ(item.update("x"), qvr::errSecParam);
      EXPECT_EQ(item.remove(), qvr::errSecParam);
      EXPECT_EQ(item.probe(), qvr::errSecParam);
    }
  }
  EXPECT_EQ(itemCount(), 0u);
}

TEST_F(SecretServiceKeychainTest, RecordOf64KiB) {
  std::string record(64 * 1024, '\0');
  for (std::size_t index = 0; index < record.size(); ++index)
    record[index] = static_cast<char>(index * 7);
  ASSERT_EQ(item_.add(record), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), record);
}

TEST_F(SecretServiceKeychainTest, ListsAThousandItems) {
  service_.with([](Keyring& keyring) {
    for (int number = 1; number <= 1000; ++number) {
      const std::string account = "account " + std::to_string(number);
      keyring.items[number].attributes = {{"service", kService}, {"account", account}};
    }
    keyring.lastNumber = 1000;
  });
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  const std::vector<KeychainItemName> names = list();
  EXPECT_EQ(names.size(), 1001u);
  EXPECT_TRUE(std::ranges::is_sorted(names));
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServiceKeychainTest, ListNamesOnlyItemsOfTheLibrary) {
  service_.with([](Keyring& keyring) {
    const auto add = [&keyring](std::map<std::string, std::string> attributes) {
      keyring.items[++keyring.lastNumber].attributes = std::move(attributes);
    };
    add({{"service", "app.Google.OAuth2Token"}, {"account", "b"}});
    add({{"service", "OAuth2Token"}, {"account", "a"}, {"xdg:schema", "org.example"}});
    add({{"service", "NotOAuth2Token"}, {"account", "a"}});
    add({{"service", "smtp"}, {"account", "a"}});
    add({{"service", "OAuth2Token"}});
    add({{"account", "a"}});
    add({});
  });
  const std::vector<KeychainItemName> expected = {{"OAuth2Token", "a"},
                                                  {"app.Google.OAuth2Token", "b"}};
  EXPECT_EQ(list(), expected);
}

TEST_F(SecretServiceKeychainTest, ListLeavesOutAnItemThatGoesMeanwhile) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  ASSERT_EQ((Item{*keychain_, kService, "other"}.add("x")), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) {
    keyring.onCall = [](Keyring& self, const std::string& member) {
      if (member == "Attributes") self.items.erase(1);
      return Reaction::kServe;
    };
  });
  EXPECT_EQ(list(), (std::vector<KeychainItemName>{{kService, "other"}}));
}

TEST_F(SecretServiceKeychainTest, FailedListLeavesTheNamesAlone) {
  std::vector<KeychainItemName> names = {{"a", "b"}};
  for (const char* member : {"Items", "Collections", "Attributes"}) {
    ASSERT_EQ((Item{*keychain_, kService, member}.add("secret")), qvr::errSecSuccess);
    answerWithError(member, "org.freedesktop.DBus.Error.Failed");
    EXPECT_EQ(keychain_->list(&names), qvr::errSecIO) << member;
    EXPECT_EQ(names.size(), 1u);
  }
}

// An item in the default keyring, and one in another that is open, as after a change of the
// default.
class SecretServiceKeyringsTest : public SecretServiceKeychainTest {
 protected:
  void SetUp() override {
    for (const KeychainItemName& name : {kHere, kThere})
      ASSERT_EQ((Item{*keychain_, name.service, name.account}.add("secret")), qvr::errSecSuccess);
    service_.with([](Keyring& keyring) {
      keyring.others["other"] = false;
      keyring.items.at(2).collection = "other";
      keyring.calls.clear();
    });
  }

  // Has this done, once, when a member is called the nth time from now on.
  void react(const std::string& member, int nth, std::function<Reaction(Keyring&)> reaction) {
    service_.with([&](Keyring& keyring) {
      keyring.onCall = [=](Keyring& self, const std::string& called) mutable {
        return called == member && --nth == 0 ? reaction(self) : Reaction::kServe;
      };
    });
  }

  static Reaction removeOther(Keyring& keyring) {
    keyring.others.clear();
    return Reaction::kServe;
  }

  const KeychainItemName kHere{kService, "here@example.com"};
  const KeychainItemName kThere{kService, "there@example.com"};
};

TEST_F(SecretServiceKeyringsTest, ListCoversOpenOnesBesideTheDefault) {
  EXPECT_EQ(list(), (std::vector<KeychainItemName>{kHere, kThere}));
  EXPECT_EQ((Item{*keychain_, kThere.service, kThere.account}.text()), "secret");
  EXPECT_EQ(countOf("Attributes"), 2) << "each item is looked at once";
}

TEST_F(SecretServiceKeyringsTest, RemovingIsNotDoneWhileALockedItemOfTheNameIsLeft) {
  service_.with([](Keyring& keyring) {
    keyring.others["other"] = true;
    keyring.items.at(2).attributes = keyring.items.at(1).attributes;
  });
  const Item item{*keychain_, kHere.service, kHere.account};
  EXPECT_EQ(item.remove(), qvr::errSecInteractionNotAllowed);
  service_.with([](Keyring& keyring) { keyring.others["other"] = false; });
  EXPECT_EQ(item.remove(), qvr::errSecSuccess);
  EXPECT_EQ(service_.with([](Keyring& keyring) { return keyring.items.size(); }), 0U);
}

TEST_F(SecretServiceKeyringsTest, ListNeitherLooksIntoClosedOnesNorHasThemUnlocked) {
  service_.with([](Keyring& keyring) { keyring.others["other"] = true; });
  EXPECT_EQ(list(), (std::vector<KeychainItemName>{kHere}));
  EXPECT_EQ(countOf("Items"), 2) << "of the default keyring, by its alias and by its name";
  EXPECT_EQ(countOf("Unlock"), 0);
  EXPECT_EQ(countOf("Prompt"), 0);
}

// The calls are those of the alias, "login" and "other", in this order.
TEST_F(SecretServiceKeyringsTest, ListLeavesOutOneThatGoesMeanwhile) {
  for (const char* member : {"Locked", "Items"}) {
    service_.with([](Keyring& keyring) { keyring.others["other"] = false; });
    react(member, 2, removeOther);
    EXPECT_EQ(list(), (std::vector<KeychainItemName>{kHere})) << member;
  }
}

TEST_F(SecretServiceKeyringsTest, ListLeavesOutOneThatIsLockedMeanwhile) {
  react("Items", 3, [](Keyring& keyring) {
    keyring.error = "org.freedesktop.Secret.Error.IsLocked";
    return Reaction::kError;
  });
  EXPECT_EQ(list(), (std::vector<KeychainItemName>{kHere}));
}

TEST_F(SecretServiceKeyringsTest, ListThatMissesAnotherForAnotherReasonFails) {
  for (const char* member : {"Locked", "Items"}) {
    react(member, 3, [](Keyring& keyring) {
      keyring.error = "org.freedesktop.DBus.Error.Failed";
      return Reaction::kError;
    });
    std::vector<KeychainItemName> names;
    EXPECT_EQ(keychain_->list(&names), qvr::errSecIO) << member;
  }
}

TEST_F(SecretServiceKeychainTest, ItemDeletedBetweenSearchAndGetIsNotFound) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  const std::pair<const char*, std::function<std::int32_t()>> cases[] = {
      {"GetSecret", [this] { return item_.text() == "status -25300" ? -25300 : 0; }},
      {"SetSecret", [this] { return item_.update("x"); }},
      {"Delete", [this] { return item_.remove(); }},
  };
  for (const auto& [called, operation] : cases) {
    service_.with([member = std::string(called)](Keyring& keyring) {
      keyring.onCall = [member](Keyring& self, const std::string& seen) {
        if (seen == member) self.items.clear();
        return Reaction::kServe;
      };
    });
    EXPECT_EQ(operation(), qvr::errSecItemNotFound) << called;
    service_.with([](Keyring& keyring) { keyring.onCall = nullptr; });
    ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  }
}

TEST_F(SecretServiceKeychainTest, DamagedValueIsToldAndCanBeReplacedAndRemoved) {
  const std::string values[] = {"secret",
                                "QVR1:",
                                "QVR1:2bb80d54:c2VjcmV0",
                                "QVR1:2bb80d53:c2VjcmV",
                                "QVR1:2bb80d53:c2VjcmVx",
                                "QVR2:2bb80d53:c2VjcmV0",
                                std::string("\0\0", 2)};
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  for (const std::string& value : values) {
    changeItem([&](Keyring::Item& item) { item.secret = value; });
    EXPECT_EQ(item_.text(), "status -26275") << value;
    EXPECT_EQ(item_.probe(), qvr::errSecSuccess);
    EXPECT_EQ(item_.update("secret"), qvr::errSecSuccess);
    EXPECT_EQ(item_.text(), "secret");
  }
  changeItem([](Keyring::Item& item) { item.secret = "damaged"; });
  EXPECT_EQ(item_.remove(), qvr::errSecSuccess);
}

TEST_F(SecretServiceKeychainTest, EmptyValueInAnOpenKeyringIsDamaged) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  changeItem([](Keyring::Item& item) { item.secret.clear(); });
  EXPECT_EQ(item_.text(), "status -26275");
}

TEST_F(SecretServiceKeychainTest, WriteWithoutEffectIsAFailure) {
  service_.with([](Keyring& keyring) { keyring.losesWrites = true; });
  EXPECT_EQ(item_.add("secret"), qvr::errSecIO);
  service_.with([](Keyring& keyring) { keyring.losesWrites = false; });
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) { keyring.losesWrites = true; });
  EXPECT_EQ(item_.update("another"), qvr::errSecIO);
  EXPECT_EQ(item_.remove(), qvr::errSecIO);
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServiceKeychainTest, PromptsOfCreationAndDeletionAreHonoured) {
  service_.with([](Keyring& keyring) {
    keyring.promptsToCreate = true;
    keyring.promptsToDelete = true;
  });
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "secret");
  ASSERT_EQ(item_.remove(), qvr::errSecSuccess);
  EXPECT_EQ(itemCount(), 0u);
  EXPECT_EQ(countOf("Prompt"), 2);
}

// A service may complete these by itself; only to unlock needs a person.
TEST_F(SecretServiceKeychainTest, PromptsOfCreationAreHonouredWhereUnlockingMayNotPrompt) {
  service_.with([](Keyring& keyring) { keyring.promptsToCreate = true; });
  qvr::SecretServiceOptions silent = options();
  silent.mayPrompt = false;
  const auto keychain = open(silent);
  EXPECT_EQ((Item{*keychain, kService}.add("secret")), qvr::errSecSuccess);
}

TEST_F(SecretServiceKeychainTest, RefusedPromptsOfCreationAndDeletionChangeNothing) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) {
    keyring.promptsToCreate = true;
    keyring.promptsToDelete = true;
    keyring.prompt = Keyring::Prompt::kDismisses;
  });
  EXPECT_EQ(item_.remove(), qvr::errSecInteractionNotAllowed);
  EXPECT_EQ((Item{*keychain_, kService, "other"}.add("x")), qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(itemCount(), 1u);
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServiceKeychainTest, SecondItemsOfOtherClientsAreReplacedAndRemovedWithTheFirst) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) {
    const Keyring::Item twin = keyring.items.begin()->second;
    keyring.items[++keyring.lastNumber] = twin;
  });
  ASSERT_EQ(item_.update("another"), qvr::errSecSuccess);
  service_.with([](Keyring& keyring) {
    for (const auto& [number, item] : keyring.items)
      EXPECT_NE(item.secret, "QVR1:2bb80d53:c2VjcmV0") << number;
  });
  ASSERT_EQ(item_.remove(), qvr::errSecSuccess);
  EXPECT_EQ(itemCount(), 0u);
}

TEST_F(SecretServiceKeychainTest, KeychainsOnManyThreadsMakeOneItem) {
  service_.with([](Keyring& keyring) { keyring.makesSecondItems = true; });
  std::vector<std::thread> threads;
  std::atomic<int> added{0};
  std::atomic<int> duplicates{0};
  for (int index = 0; index < 6; ++index) {
    threads.emplace_back([&] {
      const auto keychain = open(options());
      const std::int32_t status = Item{*keychain, kService}.add("secret");
      if (status == qvr::errSecSuccess) ++added;
      if (status == qvr::errSecDuplicateItem) ++duplicates;
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(added, 1);
  EXPECT_EQ(duplicates, 5);
  EXPECT_EQ(itemCount(), 1u);
}

TEST_F(SecretServiceKeychainTest, ProcessesThatAddOneItemMakeOne) {
  service_.with([](Keyring& keyring) { keyring.makesSecondItems = true; });
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  std::vector<std::unique_ptr<support::ChildProcess>> writers;
  for (int index = 0; index < 4; ++index) {
    support::ChildProcess::Options writer;
    writer.arguments = {self.parent_path() / "keychain_writer", "add-to-secret-service",
                        bus_.address(), kService, std::to_string(index)};
    writer.environment = {{"XDG_RUNTIME_DIR", folder_.path()}};
    writers.push_back(std::make_unique<support::ChildProcess>(writer));
  }
  for (const auto& writer : writers)
    writer->closeInput();
  std::vector<std::string> statuses;
  for (const auto& writer : writers) {
    ASSERT_EQ(writer->wait(), 0);
    statuses.push_back(writer->output());
  }
  EXPECT_EQ(std::ranges::count(statuses, "0"), 1);
  EXPECT_EQ(std::ranges::count(statuses, "-25299"), 3);
  EXPECT_EQ(itemCount(), 1u);
  EXPECT_TRUE(std::filesystem::exists(folder_.file("qvr-oauth2-secret-service")));
}

TEST_F(SecretServiceKeychainTest, LockFolderThatIsOpenToOthersIsRefused) {
  std::filesystem::create_directory(folder_.file("lock"));
  std::filesystem::permissions(folder_.file("lock"), std::filesystem::perms::all);
  EXPECT_EQ(item_.add("secret"), qvr::errSecAuthFailed);
  EXPECT_EQ(itemCount(), 0u);
}

TEST_F(SecretServiceKeychainTest, WriterThatDoesNotGetTheLockInTimeGivesUp) {
  const auto held =
      qvr::PrivateDirectory::openOrMake(qvr::FileCalls::system(), folder_.file("lock"))
          .lock(std::chrono::seconds(1));
  const auto keychain = open(impatient());
  const Item item{*keychain, kService};
  EXPECT_EQ(item.add("secret"), qvr::errSecNotAvailable);
  EXPECT_EQ(item.probe(), qvr::errSecItemNotFound);
}

}  // namespace
}  // namespace ports_test
