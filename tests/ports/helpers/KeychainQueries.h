// Keychain queries as the tests write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/KeychainItems.h"

namespace ports_test {

inline qvr::Data bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

inline qvr::KeychainQuery itemNamed(std::string_view service, std::string_view account) {
  return {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
          {std::string(qvr::kSecAttrService), service},
          {std::string(qvr::kSecAttrAccount), account}};
}

inline qvr::KeychainQuery with(qvr::KeychainQuery query, std::string_view key, qvr::Value value) {
  query.insert_or_assign(std::string(key), std::move(value));
  return query;
}

inline qvr::KeychainQuery dataOf(std::string_view text) {
  return {{std::string(qvr::kSecValueData), bytes(text)}};
}

// The operations, for one item, on text.
struct Item {
  qvr::KeychainItems& keychain;
  std::string service = "Google.OAuth2Token";
  std::string account = "user@example.com";

  qvr::KeychainQuery query() const { return itemNamed(service, account); }

  std::int32_t add(std::string_view text) const {
    return keychain.add(with(query(), qvr::kSecValueData, bytes(text)));
  }
  std::int32_t update(std::string_view text) const {
    return keychain.update(query(), dataOf(text));
  }
  std::int32_t remove() const { return keychain.remove(query()); }
  std::int32_t probe() const { return keychain.copyMatching(query(), nullptr); }

  std::int32_t read(qvr::Data* result) const {
    return keychain.copyMatching(with(query(), qvr::kSecReturnData, true), result);
  }

  // The item's data; "status N" when it cannot be read.
  std::string text() const {
    qvr::Data data;
    const std::int32_t status = read(&data);
    if (status != 0) return "status " + std::to_string(status);
    return {data.begin(), data.end()};
  }
};

}  // namespace ports_test
