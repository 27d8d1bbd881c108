#include "src/ports/EncryptedFileKeychain.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "src/platform/Crypto.h"
#include "src/platform/KeychainAttributes.h"
#include "src/ports/Milliseconds.h"

namespace qvr {

namespace {

// One byte more than an item may have, so that a longer file is seen to be one.
constexpr std::size_t kReadLimit = kMaximumItemFileSize + 1;

bool areUsable(const EncryptedFileKeychainOptions& options) {
  if (options.directory.empty()) return false;
  return options.passphrase || !lastComponentOfPath(options.keyFile).empty();
}

}  // namespace

EncryptedFileKeychain::EncryptedFileKeychain(const EncryptedFileKeychainOptions& options,
                                             const Tuning& tuning)
    : directory_(options.directory),
      isUsable_(areUsable(options)),
      tuning_(tuning),
      key_(*tuning.fileCalls, options.keyFile, options.passphrase, tuning.passphraseCost,
           tuning.lockDeadline) {}

std::int32_t EncryptedFileKeychain::copyMatching(const KeychainQuery& query, Data* result) {
  return perform([&] {
    const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
    if (!wanted) throw KeychainFailure{errSecParam};
    const std::optional<Store> store = existingStore();
    if (!store) throw KeychainFailure{errSecItemNotFound};
    const std::string fileName = store->sealer->fileName(wanted->name);
    if (result == nullptr || !wanted->returnsData) {
      if (!store->directory.contains(fileName)) throw KeychainFailure{errSecItemNotFound};
      return;
    }
    const std::optional<Data> file = store->directory.read(fileName, kReadLimit);
    if (!file) throw KeychainFailure{errSecItemNotFound};
    *result = store->sealer->unseal(wanted->name, *file);
  });
}

std::int32_t EncryptedFileKeychain::add(const KeychainQuery& attributes) {
  return perform([&] {
    const std::optional<NewKeychainItem> item = readNewItem(attributes);
    if (!item) throw KeychainFailure{errSecParam};
    const auto directory = PrivateDirectory::openOrMake(*tuning_.fileCalls, directory_);
    key_.open(directory);  // what a passphrase costs is not paid under the lock
    const DirectoryLock lock = directory.lock(tuning_.lockDeadline);
    const auto sealer = key_.openOrMake(directory, lock);
    const std::string fileName = sealer->fileName(item->name);
    if (directory.contains(fileName)) throw KeychainFailure{errSecDuplicateItem};
    directory.replace(lock, fileName, sealer->seal(item->name, *item->data));
  });
}

std::int32_t EncryptedFileKeychain::update(const KeychainQuery& query,
                                           const KeychainQuery& attributesToUpdate) {
  return perform([&] {
    const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
    const Data* const data = readReplacementData(attributesToUpdate);
    if (!wanted || data == nullptr) throw KeychainFailure{errSecParam};
    changeItem(wanted->name,
               [&](const Store& store, const std::string& fileName, const DirectoryLock& lock) {
                 store.directory.replace(lock, fileName, store.sealer->seal(wanted->name, *data));
               });
  });
}

std::int32_t EncryptedFileKeychain::remove(const KeychainQuery& query) {
  return perform([&] {
    const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
    if (!wanted) throw KeychainFailure{errSecParam};
    changeItem(wanted->name,
               [](const Store& store, const std::string& fileName, const DirectoryLock& lock) {
                 store.directory.remove(lock, fileName);
               });
  });
}

std::int32_t EncryptedFileKeychain::list(std::vector<KeychainItemName>* names) {
  return perform([&] {
    std::vector<KeychainItemName> found;
    if (const std::optional<Store> store = existingStore()) {
      for (const std::string& fileName : store->directory.names()) {
        if (!isItemFileName(fileName)) continue;
        const std::optional<Data> file = store->directory.read(fileName, kReadLimit);
        std::optional<KeychainItemName> name =
            file ? store->sealer->unsealName(*file) : std::nullopt;
        // A copy under another name is no second item.
        if (name && store->sealer->fileName(*name) == fileName) found.push_back(std::move(*name));
      }
    }
    std::ranges::sort(found);
    *names = std::move(found);
  });
}

// Runs an operation and answers its status.
std::int32_t EncryptedFileKeychain::perform(const std::function<void()>& operation) const {
  if (!isUsable_) return errSecParam;
  try {
    operation();
    return errSecSuccess;
  } catch (const KeychainFailure& failure) {
    return failure.status;
  } catch (const std::bad_alloc&) {
    return errSecAllocate;
  } catch (const std::system_error& error) {  // no thread to wait for the lock
    return keychainStatusForErrno(error.code().value());
  }
}

// The store, opened with its key; nothing when none was made yet.
std::optional<EncryptedFileKeychain::Store> EncryptedFileKeychain::existingStore() {
  auto directory = PrivateDirectory::open(*tuning_.fileCalls, directory_);
  if (!directory) return std::nullopt;
  auto sealer = key_.open(*directory);
  if (!sealer) return std::nullopt;
  return Store{std::move(*directory), std::move(sealer)};
}

// Calls `change` under the lock, with the name of the item's file, when there is such an item.
void EncryptedFileKeychain::changeItem(
    const KeychainItemName& name,
    const std::function<void(const Store&, const std::string&, const DirectoryLock&)>& change) {
  const std::optional<Store> store = existingStore();
  if (!store) throw KeychainFailure{errSecItemNotFound};
  const std::string fileName = store->sealer->fileName(name);
  const DirectoryLock lock = store->directory.lock(tuning_.lockDeadline);
  if (!store->directory.contains(fileName)) throw KeychainFailure{errSecItemNotFound};
  change(*store, fileName, lock);
}

inline namespace v1 {

Ref<KeychainItems> makeEncryptedFileKeychain(EncryptedFileKeychainOptions options) {
  EncryptedFileKeychain::Tuning tuning;
  tuning.lockDeadline = millisecondsOf(options.lockTimeoutSeconds);
  auto keychain = makeRef<EncryptedFileKeychain>(options, tuning);
  if (options.passphrase) wipe(options.passphrase->data(), options.passphrase->size());
  return keychain;
}

}  // namespace v1
}  // namespace qvr
