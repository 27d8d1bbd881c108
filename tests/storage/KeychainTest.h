// What the tests of the keychain store share.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ErrorMatchers.h"
#include "tests/support/LibraryTest.h"

namespace support {

// The item that most tests use.
inline constexpr const char* kService = "Google";
inline constexpr const char* kServiceName = "org.example.mail.Google.OAuth2Token";
inline constexpr const char* kAccount = "user@example.org";

// The three attributes that match an item, and those with one more.
inline qvr::KeychainQuery itemQuery(std::string_view service = kServiceName,
                                    std::string_view account = kAccount) {
  return {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
          {std::string(qvr::kSecAttrAccount), account},
          {std::string(qvr::kSecAttrService), service}};
}

inline qvr::KeychainQuery with(qvr::KeychainQuery query, std::string_view key, qvr::Value value) {
  query.insert_or_assign(std::string(key), std::move(value));
  return query;
}

// An error that stands in a caller's error place before a call.
inline qvr::ErrorPtr earlierError() {
  return qvr::Error::errorWithDomain("Earlier", 1);
}

MATCHER_P2(IsCall, operation, query, "") {
  return arg.operation == operation && arg.query == query && arg.attributes.empty() &&
         !arg.wantsData;
}
MATCHER_P(IsRead, query, "") {
  return arg.operation == "copyMatching" && arg.wantsData &&
         arg.query == with(query, qvr::kSecReturnData, true);
}
MATCHER_P2(IsUpdate, query, data, "") {
  return arg.operation == "update" && arg.query == query &&
         arg.attributes == qvr::KeychainQuery{{std::string(qvr::kSecValueData), data}};
}

class KeychainTest : public LibraryTest {
 protected:
  // Calls of `work` that touch the keychain, in order.
  template <class Work>
  std::vector<FakeKeychain::Call> callsOf(const Work& work) {
    const std::size_t before = keychain->calls().size();
    work();
    std::vector<FakeKeychain::Call> calls = keychain->calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    return calls;
  }
};

}  // namespace support
