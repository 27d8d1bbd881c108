// Items in an open keyring.

#include <algorithm>
#include <functional>

#include "src/ports/SecretServicePayload.h"
#include "tests/e2e/desktop/KeyringTest.h"

namespace e2e {
namespace {

using ports_test::bytes;

std::string payloadOf(const std::string& text) {
  const qvr::SecretBytes payload = qvr::encodeSecretServicePayload(bytes(text));
  return {payload.data(), payload.data() + payload.size()};
}

class KeyringItemsTest : public KeyringTest {
 protected:
  void SetUp() override { daemon().create(); }
};

TEST_P(KeyringItemsTest, ItemMakesTheRoundTrip) {
  EXPECT_EQ(examine().kind, Kind::kReady);
  EXPECT_EQ(item().text(), "status -25300");
  ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(item().probe(), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), "secret");
  EXPECT_EQ(item().add("other"), qvr::errSecDuplicateItem);
  EXPECT_EQ(list(), std::vector{nameOf(item())});
  ASSERT_EQ(item().remove(), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), "status -25300");
  EXPECT_EQ(item().remove(), qvr::errSecItemNotFound);
  EXPECT_EQ(item().update("x"), qvr::errSecItemNotFound);
  EXPECT_TRUE(list().empty());
  EXPECT_EQ(count(item()), 0u);
}

TEST_P(KeyringItemsTest, ReplacingLeavesOneItem) {
  ASSERT_EQ(item().add("first"), qvr::errSecSuccess);
  for (const std::string text : {"second, and longer", "3", ""}) {
    ASSERT_EQ(item().update(text), qvr::errSecSuccess);
    EXPECT_EQ(item().text(), text);
    EXPECT_EQ(count(item()), 1u);
  }
}

TEST_P(KeyringItemsTest, BinaryDataComesBackAsItWas) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte)
    every.push_back(static_cast<char>(byte));
  ASSERT_EQ(item().add(every), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), every);
}

TEST_P(KeyringItemsTest, SecretToolFindsTheItem) {
  ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(secretTool({"lookup", "service", kService, "account", item().account}),
            payloadOf("secret"));
}

TEST_P(KeyringItemsTest, ItemIsLabelledForItsUser) {
  ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  const std::vector<std::string> found = client().find(nameOf(item()));
  ASSERT_EQ(found.size(), 1u);
  EXPECT_NE(client().labelOf(found.front()).find(item().account), std::string::npos);
}

TEST_P(KeyringItemsTest, ItemsOutliveTheDaemon) {
  addDurably(item(), "secret");
  daemon().kill();
  daemon().startOpen();
  EXPECT_EQ(item().text(), "secret");
  EXPECT_EQ(count(item()), 1u);
}

TEST_P(KeyringItemsTest, RecordOf64KiBMakesTheRoundTrip) {
  std::string record(64 * 1024, '\0');
  for (std::size_t index = 0; index < record.size(); ++index)
    record[index] = static_cast<char>(index * 31 % 251);
  ASSERT_EQ(item().add(record), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), record);
  std::ranges::reverse(record);
  ASSERT_EQ(item().update(record), qvr::errSecSuccess);
  EXPECT_EQ(item().text(), record);
}

TEST_P(KeyringItemsTest, AnyAccountNameWorks) {
  const std::string accounts[] = {"with some spaces ",
                                  R"(quotes " and ' and ` and \)",
                                  "slashes/../../etc//",
                                  "J\xC3\xBCrgen@b\xC3\xBC"
                                  "cher.example \xF0\x9F\x94\x91",
                                  std::string(1000, 'x'),
                                  "user@example.com",
                                  "user@example.co"};
  for (const std::string& account : accounts)
    ASSERT_EQ(item(account).add("of " + account), qvr::errSecSuccess) << account;
  for (const std::string& account : accounts) {
    EXPECT_EQ(item(account).text(), "of " + account);
    EXPECT_EQ(count(item(account)), 1u) << account;
  }
  EXPECT_EQ(list().size(), std::size(accounts));
  for (const std::string& account : accounts)
    EXPECT_EQ(item(account).remove(), qvr::errSecSuccess) << account;
  EXPECT_TRUE(list().empty());
}

TEST_P(KeyringItemsTest, ItemsOfOtherProgramsAreLeftAlone) {
  const StoredItem others[] = {{{"imap.example.com", item().account}, "a password"},
                               {{kService, "another@example.com"}, "not in our form"},
                               {{"OAuth2Token.example.com", item().account}, "a token"}};
  for (const StoredItem& other : others)
    client().create(other, "Of another program");
  ASSERT_EQ(item().add("secret"), qvr::errSecSuccess);
  ASSERT_EQ(item().update("changed"), qvr::errSecSuccess);
  EXPECT_EQ(item("another@example.com").text(), "status -26275");
  EXPECT_EQ(list(), (std::vector<qvr::KeychainItemName>{others[1].name, nameOf(item())}));
  ASSERT_EQ(item().remove(), qvr::errSecSuccess);
  for (const StoredItem& other : others) {
    const std::vector<std::string> found = client().find(other.name);
    ASSERT_EQ(found.size(), 1u) << other.name.service;
    EXPECT_EQ(client().secretOf(found.front()), other.secret);
    EXPECT_EQ(client().labelOf(found.front()), "Of another program");
  }
}

TEST_P(KeyringItemsTest, TwoProcessesThatWriteOneItemLeaveItWhole) {
  const std::string values[] = {std::string(3000, 'a'), std::string(5000, 'b')};
  for (int turn = 0; turn < 3; ++turn) {
    std::vector<std::unique_ptr<support::ChildProcess>> writers;
    for (const std::string& value : values) {
      writers.push_back(std::make_unique<support::ChildProcess>(support::ChildProcess::Options{
          {QVR_KEYRING_WRITER, kService, item().account, value}, daemon().environment()}));
    }
    for (const auto& writer : writers)
      ASSERT_TRUE(writer->waitForOutput("ready"));
    for (const auto& writer : writers)
      writer->closeInput();
    for (const auto& writer : writers)
      EXPECT_EQ(writer->wait(), EXIT_SUCCESS) << writer->output();
    EXPECT_EQ(count(item()), 1u);
    EXPECT_TRUE(std::ranges::count(values, item().text())) << item().text();
    ASSERT_EQ(item().remove(), qvr::errSecSuccess);
  }
}

QVR_TEST_EVERY_KEYRING(KeyringItemsTest);

class KeyringManyItemsTest : public KeyringTest {
 protected:
  static constexpr int kItems = 1000;

  static std::vector<StoredItem> manyItems() {
    std::vector<StoredItem> items;
    for (int number = 1000; number < 1000 + kItems; ++number) {
      const std::string account = "user" + std::to_string(number) + "@example.com";
      items.push_back({{kService, account}, payloadOf("of " + account)});
    }
    return items;
  }

  // KeePassXC saves its database on another thread, and a change meanwhile may crash it: the more
  // items, the likelier.
  void change(const std::function<std::int32_t()>& operation) {
    const std::string before = daemon().content();
    ASSERT_EQ(operation(), qvr::errSecSuccess);
    if (isKeePassXC()) {
      ASSERT_TRUE(daemon().waitUntilStored(before));
    }
  }
};

TEST_P(KeyringManyItemsTest, AThousandItemsAreListedReadAndRemoved) {
  const std::vector<StoredItem> stored = manyItems();
  daemon().create(stored);
  std::vector<qvr::KeychainItemName> expected;
  for (const StoredItem& one : stored)
    expected.push_back(one.name);
  EXPECT_EQ(list(), expected);
  for (const StoredItem& one : stored)
    ASSERT_EQ(item(one.name.account).text(), "of " + one.name.account);

  for (const std::size_t index : {0u, 1u, 500u, 998u, 999u}) {
    const Item changed = item(expected[index].account);
    change([&] { return changed.update("changed"); });
    EXPECT_EQ(changed.text(), "changed");
    change([&] { return changed.remove(); });
    EXPECT_EQ(changed.text(), "status -25300");
  }
  EXPECT_EQ(list().size(), stored.size() - 5);
}

QVR_TEST_EVERY_KEYRING(KeyringManyItemsTest);

}  // namespace
}  // namespace e2e
