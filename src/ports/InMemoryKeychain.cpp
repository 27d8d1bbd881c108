// Items that live as long as the object, for tests and for hosts that store nothing.

#include <algorithm>
#include <unordered_map>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/platform/Crypto.h"
#include "src/platform/KeychainAttributes.h"
#include "src/platform/Mutex.h"

namespace qvr {

namespace {

void wipeData(Data& data) {
  wipe(data.data(), data.size());
}

struct NameHash {
  std::size_t operator()(const KeychainItemName& name) const {
    const std::hash<std::string> hash;
    return hash(name.service) ^ (hash(name.account) * 31);
  }
};

class InMemoryKeychain final : public KeychainItems {
 public:
  ~InMemoryKeychain() override {
    for (auto& [name, data] : items_)
      wipeData(data);
  }

  std::int32_t copyMatching(const KeychainQuery& query, Data* result) override {
    const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
    if (!wanted) return errSecParam;
    MutexLock lock(mutex_);
    const auto item = items_.find(wanted->name);
    if (item == items_.end()) return errSecItemNotFound;
    if (result != nullptr && wanted->returnsData) *result = item->second;
    return errSecSuccess;
  }

  std::int32_t add(const KeychainQuery& attributes) override {
    std::optional<NewKeychainItem> item = readNewItem(attributes);
    if (!item) return errSecParam;
    MutexLock lock(mutex_);
    const bool added = items_.try_emplace(std::move(item->name), *item->data).second;
    return added ? errSecSuccess : errSecDuplicateItem;
  }

  std::int32_t update(const KeychainQuery& query,
                      const KeychainQuery& attributesToUpdate) override {
    const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
    const Data* const data = readReplacementData(attributesToUpdate);
    if (!wanted || data == nullptr) return errSecParam;
    MutexLock lock(mutex_);
    const auto item = items_.find(wanted->name);
    if (item == items_.end()) return errSecItemNotFound;
    Data replacement = *data;
    item->second.swap(replacement);
    wipeData(replacement);
    return errSecSuccess;
  }

  std::int32_t remove(const KeychainQuery& query) override {
    const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
    if (!wanted) return errSecParam;
    MutexLock lock(mutex_);
    const auto item = items_.find(wanted->name);
    if (item == items_.end()) return errSecItemNotFound;
    wipeData(item->second);
    items_.erase(item);
    return errSecSuccess;
  }

  std::int32_t list(std::vector<KeychainItemName>* names) override {
    MutexLock lock(mutex_);
    std::vector<KeychainItemName> found;
    found.reserve(items_.size());
    for (const auto& item : items_)
      found.push_back(item.first);
    std::ranges::sort(found);
    *names = std::move(found);
    return errSecSuccess;
  }

 private:
  Mutex mutex_;
  std::unordered_map<KeychainItemName, Data, NameHash> items_ QVR_GUARDED_BY(mutex_);
};

}  // namespace

inline namespace v1 {

Ref<KeychainItems> makeInMemoryKeychain() {
  return makeRef<InMemoryKeychain>();
}

}  // namespace v1
}  // namespace qvr
