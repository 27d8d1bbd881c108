// Every call that the encrypted file keychain makes fails once, in turn: after each failure the
// item is the old one or the new one, whole, nothing piles up, and the next try succeeds.

#include <functional>

#include "tests/ports/helpers/FaultyFileCalls.h"
#include "tests/ports/helpers/FileKeychainTest.h"

namespace ports_test {
namespace {

struct Reason {
  int number;
  std::int32_t status;
};
constexpr Reason kReasons[] = {
    {EIO, qvr::errSecIO}, {ENOSPC, qvr::errSecDiskFull}, {EROFS, qvr::errSecWrPerm}};

TEST(FileCallsTest, ReasonsHaveTheirStatus) {
  const Reason cases[] = {
      {ENOSPC, qvr::errSecDiskFull}, {EDQUOT, qvr::errSecDiskFull}, {EACCES, qvr::errSecWrPerm},
      {EPERM, qvr::errSecWrPerm},    {EROFS, qvr::errSecWrPerm},    {ENOMEM, qvr::errSecAllocate},
      {EIO, qvr::errSecIO},          {EMFILE, qvr::errSecIO},       {ENODEV, qvr::errSecIO},
  };
  for (const auto& [number, status] : cases) {
    EXPECT_EQ(qvr::keychainStatusForErrno(number), status) << number;
  }
}

class EncryptedFileKeychainFaultTest : public FileKeychainTest {
 protected:
  using Operation = std::function<std::int32_t(const Item&)>;
  using Check = std::function<void(std::int32_t status, const FaultyFileCalls&)>;

  // Runs the operation in a fresh state, made by `prepare`, with call 1 failing, then call 2, until
  // none fails any more. Returns how many calls were failed.
  int failEach(int reason, const std::function<void()>& prepare, const Operation& operation,
               const Check& check) {
    for (int number = 1;; ++number) {
      std::filesystem::remove_all(directory());
      std::filesystem::remove(keyFile());
      prepare();
      FaultyFileCalls calls(number, reason);
      const std::int32_t status = operation(Item{*open(tuning(calls))});
      SCOPED_TRACE(calls.failed() + ", call " + std::to_string(number));
      check(status, calls);
      if (calls.failed().empty()) return number - 1;
      if (HasFatalFailure()) return 0;
    }
  }

  void prepareItem(const std::string& text) {
    ASSERT_EQ(Item{*open()}.add(text), qvr::errSecSuccess);
    setContent(inUnfinished(".keychain-00.tmp"), "left by a killed writer");
  }

  std::size_t countOfItems() const {
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(open()->list(&names), qvr::errSecSuccess);
    return names.size();
  }

  static std::int32_t expectedStatus(const FaultyFileCalls& calls, std::int32_t failure) {
    return calls.failed().empty() ? 0 : failure;
  }
};

constexpr char kOld[] = "the old value";
const std::string kNew(500, 'n');

TEST_F(EncryptedFileKeychainFaultTest, UpdateLeavesTheOldItemOrTheNewOne) {
  for (const auto& [reason, failure] : kReasons) {
    const int failed = failEach(
        reason, [&] { prepareItem(kOld); }, [](const Item& item) { return item.update(kNew); },
        [&, failure = failure](std::int32_t status, const FaultyFileCalls& calls) {
          // What cannot be cleared away does no harm yet.
          const bool isHarmless = calls.failed() == "unlinkAt";
          EXPECT_EQ(status, isHarmless ? 0 : expectedStatus(calls, failure));
          const std::string seen = Item{*open()}.text();
          EXPECT_TRUE(seen == kNew || (status != 0 && seen == kOld)) << seen;
          EXPECT_LE(leftovers(), 1u);
          EXPECT_EQ(Item{*open()}.update("retried"), qvr::errSecSuccess);
          EXPECT_EQ(Item{*open()}.text(), "retried");
          EXPECT_EQ(leftovers(), 0u);
          EXPECT_EQ(countOfItems(), 1u);
        });
    EXPECT_GT(failed, 20);
  }
}

TEST_F(EncryptedFileKeychainFaultTest, AddToAnEmptyStoreLeavesNoItemOrTheNewOne) {
  for (const auto& [reason, failure] : kReasons) {
    const int failed = failEach(
        reason, [] {}, [](const Item& item) { return item.add(kNew); },
        [&, failure = failure](std::int32_t status, const FaultyFileCalls& calls) {
          EXPECT_EQ(status, expectedStatus(calls, failure));
          const std::string seen = Item{*open()}.text();
          EXPECT_TRUE(seen == kNew || (status != 0 && seen == "status -25300")) << seen;
          const std::int32_t again = Item{*open()}.add("retried");
          EXPECT_EQ(again, seen == kNew ? qvr::errSecDuplicateItem : qvr::errSecSuccess);
          EXPECT_EQ(leftovers(), 0u);
          EXPECT_EQ(namesEnding(folder_.path(), ".tmp").size(), 0u);
          EXPECT_EQ(countOfItems(), 1u);
        });
    EXPECT_GT(failed, 30);
  }
}

TEST_F(EncryptedFileKeychainFaultTest, RemoveLeavesTheItemOrNone) {
  for (const auto& [reason, failure] : kReasons) {
    const int failed = failEach(
        reason, [&] { prepareItem(kOld); }, [](const Item& item) { return item.remove(); },
        [&, failure = failure](std::int32_t status, const FaultyFileCalls& calls) {
          EXPECT_EQ(status, expectedStatus(calls, failure));
          const std::string seen = Item{*open()}.text();
          EXPECT_TRUE(seen == "status -25300" || (status != 0 && seen == kOld)) << seen;
          const std::int32_t again = Item{*open()}.remove();
          EXPECT_EQ(again, seen == kOld ? qvr::errSecSuccess : qvr::errSecItemNotFound);
          EXPECT_EQ(countOfItems(), 0u);
        });
    EXPECT_GT(failed, 8);
  }
}

TEST_F(EncryptedFileKeychainFaultTest, LooksThatFailSayWhyAndNeverThatNothingIsThere) {
  const std::pair<const char*, Operation> looks[] = {
      {"probe", [](const Item& item) { return item.probe(); }},
      {"read",
       [](const Item& item) {
         qvr::Data data = bytes("untouched");
         const std::int32_t status = item.read(&data);
         EXPECT_EQ(data, bytes(status == 0 ? kOld : "untouched"));
         return status;
       }},
      {"list",
       [](const Item& item) {
         std::vector<qvr::KeychainItemName> names;
         const std::int32_t status = item.keychain.list(&names);
         EXPECT_EQ(names.size(), status == 0 ? 1u : 0u);
         return status;
       }},
  };
  for (const auto& [name, look] : looks) {
    SCOPED_TRACE(name);
    const int failed = failEach(
        EIO, [&] { prepareItem(kOld); }, look,
        [&](std::int32_t status, const FaultyFileCalls& calls) {
          EXPECT_EQ(status, expectedStatus(calls, qvr::errSecIO));
          EXPECT_EQ(Item{*open()}.text(), kOld);
        });
    EXPECT_GT(failed, 5);
  }
}

TEST_F(EncryptedFileKeychainFaultTest, SignalsInterruptNothing) {
  const auto succeeds = [&](std::int32_t status, const FaultyFileCalls&) { EXPECT_EQ(status, 0); };
  const auto prepare = [&] { prepareItem(kOld); };
  failEach(
      EINTR, [] {}, [](const Item& item) { return item.add(kNew); },
      [&](std::int32_t status, const FaultyFileCalls& calls) {
        // Folders are made and files removed without waiting, so nothing interrupts that.
        EXPECT_TRUE(status == 0 || calls.failed() == "makeDirectoryAt");
      });
  failEach(
      EINTR, prepare, [](const Item& item) { return item.update(kNew); }, succeeds);
  failEach(
      EINTR, prepare, [](const Item& item) { return item.probe(); }, succeeds);
  failEach(
      EINTR, prepare,
      [](const Item& item) {
        qvr::Data data;
        return item.read(&data);
      },
      succeeds);
}

TEST_F(EncryptedFileKeychainFaultTest, FileSystemThatCannotSyncFoldersWillDo) {
  // EINVAL for each call in turn: only where a folder is synced is it no failure.
  int harmless = 0;
  failEach(
      EINVAL, [&] { prepareItem(kOld); }, [](const Item& item) { return item.update(kNew); },
      [&](std::int32_t status, const FaultyFileCalls& calls) {
        if (calls.failed() == "sync" && status == 0) ++harmless;
        if (calls.failed() != "sync" && calls.failed() != "unlinkAt") {
          EXPECT_EQ(status, expectedStatus(calls, qvr::errSecIO));
        }
      });
  EXPECT_EQ(harmless, 1);
}

}  // namespace
}  // namespace ports_test
