#include "src/platform/KeychainAttributes.h"

#include <algorithm>
#include <initializer_list>

namespace qvr {

namespace {

// The attribute's content, or null when it is missing or of another type.
template <class T>
const T* attribute(const KeychainQuery& query, std::string_view key) {
  const auto entry = query.find(key);
  return entry == query.end() ? nullptr : entry->second.as<T>();
}

bool hasOnly(const KeychainQuery& query, std::initializer_list<std::string_view> known) {
  return std::all_of(query.begin(), query.end(), [known](const auto& entry) {
    return std::find(known.begin(), known.end(), entry.first) != known.end();
  });
}

std::optional<KeychainItemName> readName(const KeychainQuery& query) {
  const auto* const itemClass = attribute<std::string>(query, kSecClass);
  const auto* const service = attribute<std::string>(query, kSecAttrService);
  const auto* const account = attribute<std::string>(query, kSecAttrAccount);
  if (itemClass == nullptr || service == nullptr || account == nullptr) return std::nullopt;
  if (*itemClass != kSecClassGenericPassword) return std::nullopt;
  return KeychainItemName{*service, *account};
}

}  // namespace

std::optional<KeychainItemQuery> readItemQuery(const KeychainQuery& query) {
  if (!hasOnly(query, {kSecClass, kSecAttrService, kSecAttrAccount, kSecReturnData})) {
    return std::nullopt;
  }
  std::optional<KeychainItemName> name = readName(query);
  if (!name) return std::nullopt;
  if (query.find(kSecReturnData) == query.end()) return KeychainItemQuery{std::move(*name), false};
  const bool* const returnsData = attribute<bool>(query, kSecReturnData);
  if (returnsData == nullptr) return std::nullopt;
  return KeychainItemQuery{std::move(*name), *returnsData};
}

std::optional<NewKeychainItem> readNewItem(const KeychainQuery& attributes) {
  if (!hasOnly(attributes, {kSecClass, kSecAttrService, kSecAttrAccount, kSecValueData})) {
    return std::nullopt;
  }
  std::optional<KeychainItemName> name = readName(attributes);
  const auto* const data = attribute<Data>(attributes, kSecValueData);
  if (!name || data == nullptr) return std::nullopt;
  return NewKeychainItem{std::move(*name), data};
}

const Data* readReplacementData(const KeychainQuery& attributesToUpdate) {
  if (!hasOnly(attributesToUpdate, {kSecValueData})) return nullptr;
  return attribute<Data>(attributesToUpdate, kSecValueData);
}

}  // namespace qvr
