// The keychain seam: generic-password items keyed by class, service and account.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/Value.h"

namespace qvr {
inline namespace v1 {

// Attribute keys and the one item class in use.
inline constexpr std::string_view kSecClass = "class";
inline constexpr std::string_view kSecClassGenericPassword = "genp";
inline constexpr std::string_view kSecAttrAccount = "acct";
inline constexpr std::string_view kSecAttrService = "svce";
inline constexpr std::string_view kSecValueData = "v_Data";   // a Data value
inline constexpr std::string_view kSecReturnData = "r_Data";  // a boolean value

// Statuses. Ports answer these, and only these have a message.
enum KeychainStatus : std::int32_t {
  errSecSuccess = 0,
  errSecDiskFull = -34,                  // no space left
  errSecIO = -36,                        // a read or write failed
  errSecParam = -50,                     // an attribute is missing or of the wrong type
  errSecWrPerm = -61,                    // no permission
  errSecAllocate = -108,                 // out of memory
  errSecUserCanceled = -128,             // the unlock prompt was dismissed
  errSecNotAvailable = -25291,           // no service, no bus, the service died
  errSecAuthFailed = -25293,             // wrong key or passphrase
  errSecInvalidKeychain = -25295,        // the store is damaged
  errSecDuplicateItem = -25299,          // an item with these attributes exists
  errSecItemNotFound = -25300,           // no such item
  errSecInteractionNotAllowed = -25308,  // locked, and nobody can be asked
  errSecDecode = -26275,                 // one item is damaged
};

// Attributes by key.
using KeychainQuery = std::map<std::string, Value, std::less<>>;

// The name of a stored item.
struct KeychainItemName {
  std::string service;
  std::string account;
  friend auto operator<=>(const KeychainItemName&, const KeychainItemName&) = default;
};

// What a port owes: every operation may be called from any thread and blocks until it is done, with
// a deadline of the port's own; items are durable when the call returns; there is never a second
// item with the same class, service and account; a missing item is errSecItemNotFound, and an
// unreachable or locked store is never reported as that.
class QVR_EXPORT KeychainItems : public Object {
 public:
  // SecItemCopyMatching
  // Looks up the first item with the query's attributes. With `result` and a true kSecReturnData
  // entry, its data is stored there on success; with a null `result` only the item's presence is
  // told and nothing is unsealed, so that a damaged item can still be replaced and removed.
  virtual std::int32_t copyMatching(const KeychainQuery& query, Data* result) = 0;

  // SecItemAdd
  // Adds an item from attributes that include kSecValueData. errSecDuplicateItem when there is one.
  virtual std::int32_t add(const KeychainQuery& attributes) = 0;

  // SecItemUpdate
  // Replaces the data of the item that matches; errSecItemNotFound when there is none. After a
  // failure the item is whole: as it was, or, when all but the last sync was done, replaced.
  virtual std::int32_t update(const KeychainQuery& query,
                              const KeychainQuery& attributesToUpdate) = 0;

  // SecItemDelete
  virtual std::int32_t remove(const KeychainQuery& query) = 0;

  // The names of all stored items, sorted by service and account, for hosts. `names` is written on
  // success only.
  virtual std::int32_t list(std::vector<KeychainItemName>* names) = 0;

  // SecCopyErrorMessageString
  // A sentence for a status; absent for a status that has none.
  virtual Text messageForStatus(std::int32_t status) const;
};

}  // namespace v1
}  // namespace qvr
