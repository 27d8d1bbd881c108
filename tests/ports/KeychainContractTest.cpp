// What every keychain port owes, and the ports that need no service.

#include "tests/ports/helpers/KeychainContractTest.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/ports/helpers/FileKeychainTest.h"

namespace ports_test {
namespace {

using qvr::KeychainItemName;
using qvr::KeychainItems;
using qvr::KeychainQuery;
using qvr::Value;

const Port kPorts[] = {
    {"InMemory",
     [](const support::TemporaryFolder&, auto*) { return qvr::makeInMemoryKeychain(); }},
    {"EncryptedFileWithKeyFile",
     [](const support::TemporaryFolder& folder, auto*) {
       return qvr::makeEncryptedFileKeychain(
           {folder.file("keychain"), folder.file("key"), std::nullopt});
     }},
    {"EncryptedFileWithPassphrase",
     [](const support::TemporaryFolder& folder, auto*) -> qvr::Ref<KeychainItems> {
       qvr::EncryptedFileKeychain::Tuning tuning;
       tuning.passphraseCost = kCheapPassphrase;
       return qvr::makeRef<qvr::EncryptedFileKeychain>(
           qvr::EncryptedFileKeychainOptions{folder.file("keychain"), "", "open sesame"}, tuning);
     }},
};

// Services end as those of the library's keychain store do: a port may list only those.
std::string service(const std::string& name) {
  return name.empty() ? "OAuth2Token" : name + ".OAuth2Token";
}

TEST_P(KeychainContractTest, ReadsWhatWasAdded) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "secret");
}

TEST_P(KeychainContractTest, KeepsEmptyAndBinaryData) {
  const std::string binary("\0\xff\n\0", 4);
  ASSERT_EQ(item_.add(""), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "");
  ASSERT_EQ(item_.update(binary), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), binary);
}

TEST_P(KeychainContractTest, MissingItemIsNotFound) {
  qvr::Data result = bytes("untouched");
  EXPECT_EQ(item_.probe(), qvr::errSecItemNotFound);
  EXPECT_EQ(item_.read(&result), qvr::errSecItemNotFound);
  EXPECT_EQ(item_.update("x"), qvr::errSecItemNotFound);
  EXPECT_EQ(item_.remove(), qvr::errSecItemNotFound);
  EXPECT_EQ(result, bytes("untouched"));
  EXPECT_TRUE(list().empty());
}

TEST_P(KeychainContractTest, MissingItemBesideAnotherIsNotFound) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  const Item other{*keychain_, "Google.OAuth2Token", "USER@example.com"};
  EXPECT_EQ(other.probe(), qvr::errSecItemNotFound);
  EXPECT_EQ(other.text(), "status -25300");
  EXPECT_EQ(other.update("x"), qvr::errSecItemNotFound);
  EXPECT_EQ(other.remove(), qvr::errSecItemNotFound);
  EXPECT_EQ(item_.text(), "secret");
}

TEST_P(KeychainContractTest, AddNeverMakesASecondItem) {
  ASSERT_EQ(item_.add("first"), qvr::errSecSuccess);
  EXPECT_EQ(item_.add("second"), qvr::errSecDuplicateItem);
  EXPECT_EQ(item_.text(), "first");
  EXPECT_EQ(list().size(), 1u);
}

TEST_P(KeychainContractTest, UpdateReplacesTheDataOfTheSameItem) {
  ASSERT_EQ(item_.add("first"), qvr::errSecSuccess);
  ASSERT_EQ(item_.update("a much longer second"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "a much longer second");
  ASSERT_EQ(item_.update("3"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "3");
  EXPECT_EQ(list().size(), 1u);
}

TEST_P(KeychainContractTest, RemovedItemIsGoneAndCanBeAddedAgain) {
  ASSERT_EQ(item_.add("first"), qvr::errSecSuccess);
  ASSERT_EQ(item_.remove(), qvr::errSecSuccess);
  EXPECT_EQ(item_.probe(), qvr::errSecItemNotFound);
  EXPECT_EQ(item_.remove(), qvr::errSecItemNotFound);
  ASSERT_EQ(item_.add("second"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "second");
}

TEST_P(KeychainContractTest, PresenceIsToldWithoutData) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(item_.probe(), qvr::errSecSuccess);
  qvr::Data result = bytes("untouched");
  EXPECT_EQ(keychain_->copyMatching(item_.query(), &result), qvr::errSecSuccess);
  EXPECT_EQ(keychain_->copyMatching(with(item_.query(), qvr::kSecReturnData, false), &result),
            qvr::errSecSuccess);
  EXPECT_EQ(keychain_->copyMatching(with(item_.query(), qvr::kSecReturnData, true), nullptr),
            qvr::errSecSuccess);
  EXPECT_EQ(result, bytes("untouched"));
}

TEST_P(KeychainContractTest, AnyTextNamesAnItem) {
  const KeychainItemName names[] = {
      {service(""), ""},
      {service("a"), "bc"},
      {service("ab"), "c"},
      {service("svc"), "with spaces and / slashes/../.."},
      {service("svc"), "Jürgen@bücher.example"},
      {service("svc"), std::string(1000, 'x')},
      {service(std::string(1000, 'y')), "'quotes' \"double\"\n"},
  };
  for (const auto& [itsService, account] : names) {
    ASSERT_EQ((Item{*keychain_, itsService, account}.add(itsService + "|" + account)), 0);
  }
  for (const auto& [itsService, account] : names) {
    EXPECT_EQ((Item{*keychain_, itsService, account}.text()), itsService + "|" + account);
  }
  std::vector<KeychainItemName> sorted(std::begin(names), std::end(names));
  std::ranges::sort(sorted);
  EXPECT_EQ(list(), sorted);
}

TEST_P(KeychainContractTest, ListsSortedByServiceAndAccount) {
  for (const auto& [name, account] : {std::pair{"b", "2"}, {"a", "9"}, {"b", "1"}, {"a", "10"}}) {
    ASSERT_EQ((Item{*keychain_, service(name), account}.add("x")), qvr::errSecSuccess);
  }
  const std::vector<KeychainItemName> expected = {
      {service("a"), "10"}, {service("a"), "9"}, {service("b"), "1"}, {service("b"), "2"}};
  EXPECT_EQ(list(), expected);
}

TEST_P(KeychainContractTest, RefusesQueriesThatDoNotNameAnItem) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  const KeychainQuery full = item_.query();
  std::vector<KeychainQuery> bad = {{}, with(full, "labl", "no such attribute")};
  for (const std::string_view key : {qvr::kSecClass, qvr::kSecAttrService, qvr::kSecAttrAccount}) {
    bad.push_back(full);
    bad.back().erase(std::string(key));
    bad.push_back(with(full, key, 1));
    bad.push_back(with(full, key, Value()));
  }
  bad.push_back(with(full, qvr::kSecClass, "inet"));
  for (const KeychainQuery& query : bad) {
    EXPECT_EQ(keychain_->copyMatching(query, nullptr), qvr::errSecParam);
    EXPECT_EQ(keychain_->update(query, dataOf("x")), qvr::errSecParam);
    EXPECT_EQ(keychain_->remove(query), qvr::errSecParam);
    EXPECT_EQ(keychain_->add(with(query, qvr::kSecValueData, bytes("x"))), qvr::errSecParam);
  }
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(list().size(), 1u);
}

TEST_P(KeychainContractTest, RefusesDataThatIsMissingOrNoBuffer) {
  EXPECT_EQ(keychain_->add(item_.query()), qvr::errSecParam);
  EXPECT_EQ(keychain_->add(with(item_.query(), qvr::kSecValueData, "text")), qvr::errSecParam);
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  const std::string data(qvr::kSecValueData);
  EXPECT_EQ(keychain_->update(item_.query(), {}), qvr::errSecParam);
  EXPECT_EQ(keychain_->update(item_.query(), {{data, "text"}}), qvr::errSecParam);
  EXPECT_EQ(keychain_->update(item_.query(), with(dataOf("x"), qvr::kSecAttrAccount, "b")),
            qvr::errSecParam);
  EXPECT_EQ(keychain_->copyMatching(with(item_.query(), qvr::kSecReturnData, "yes"), nullptr),
            qvr::errSecParam);
  EXPECT_EQ(item_.text(), "secret");
}

// Runs the work on several threads at once.
void onThreads(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int index = 0; index < count; ++index)
    threads.emplace_back(work, index);
  for (std::thread& thread : threads)
    thread.join();
}

TEST_P(KeychainContractTest, OfManyThreadsThatAddOneItemExactlyOneDoes) {
  std::atomic<int> added{0};
  std::atomic<int> duplicates{0};
  onThreads(8, [&](int) {
    const std::int32_t status = item_.add("secret");
    if (status == qvr::errSecSuccess) ++added;
    if (status == qvr::errSecDuplicateItem) ++duplicates;
  });
  EXPECT_EQ(added, 1);
  EXPECT_EQ(duplicates, 7);
  EXPECT_EQ(list().size(), 1u);
}

TEST_P(KeychainContractTest, ReadersSeeWholeValuesWhileOthersWrite) {
  const std::string values[] = {std::string(3000, 'a'), std::string(5000, 'b')};
  ASSERT_EQ(item_.add(values[0]), qvr::errSecSuccess);
  std::atomic<int> wrong{0};
  onThreads(4, [&](int index) {
    for (int turn = 0; turn < 20; ++turn) {
      if (index % 2 == 0) {
        if (item_.update(values[turn % 2]) != qvr::errSecSuccess) ++wrong;
      } else {
        const std::string seen = item_.text();
        if (seen != values[0] && seen != values[1]) ++wrong;
      }
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST_P(KeychainContractTest, ThreadsWithItemsOfTheirOwnDoNotDisturbEachOther) {
  std::atomic<int> wrong{0};
  onThreads(4, [&](int index) {
    const Item own{*keychain_, service("svc"), std::to_string(index)};
    for (int turn = 0; turn < 5; ++turn) {
      const std::string value = std::to_string(index * 100 + turn);
      if (own.add(value) != 0 || own.text() != value || own.remove() != 0) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(list().empty());
}

INSTANTIATE_TEST_SUITE_P(Ports, KeychainContractTest, testing::ValuesIn(kPorts),
                         [](const auto& port) { return port.param.name; });

// Names that are no text, for the ports that need not write them as such.
class KeychainBytesTest : public KeychainContractTest {};

TEST_P(KeychainBytesTest, AnyBytesNameAnItem) {
  const Item odd{*keychain_, std::string("\0\x80", 2), std::string("\0.\n\xff", 4)};
  ASSERT_EQ(odd.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(odd.text(), "secret");
  EXPECT_EQ(list(), (std::vector<KeychainItemName>{{odd.service, odd.account}}));
}

INSTANTIATE_TEST_SUITE_P(Ports, KeychainBytesTest, testing::ValuesIn(kPorts),
                         [](const auto& port) { return port.param.name; });

TEST(KeychainStatusMessageTest, EveryStatusOfThePortsHasItsSentence) {
  const std::pair<std::int32_t, std::string_view> cases[] = {
      {-25300, "The specified item could not be found in the keychain."},
      {-25299, "The specified item already exists in the keychain."},
      {-25308, "User interaction is not allowed."},
      {-128, "User canceled the operation."},
      {-25293, "The user name or passphrase you entered is not correct."},
      {-25291, "No keychain is available. You may need to restart your computer."},
      {-36, "I/O error."},
      {-34, "The disk is full."},
      {-61, "Write permissions error."},
      {-26275, "Unable to decode the provided data."},
      {-25295, "The specified keychain is not a valid keychain file."},
      {-50, "One or more parameters passed to a function were not valid."},
      {-108, "Failed to allocate memory."},
  };
  const auto keychain = qvr::makeInMemoryKeychain();
  for (const auto& [status, message] : cases) {
    EXPECT_EQ(keychain->messageForStatus(status), qvr::Text(std::string(message))) << status;
  }
}

TEST(KeychainStatusMessageTest, OtherStatusesHaveNone) {
  const auto keychain = qvr::makeInMemoryKeychain();
  for (const std::int32_t status : {0, 1, -1, -25292, -34018}) {
    EXPECT_EQ(keychain->messageForStatus(status), std::nullopt) << status;
  }
}

}  // namespace
}  // namespace ports_test
