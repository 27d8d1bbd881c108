// What a keychain query says, read and checked in one place for every port.
//
// The readers answer nothing for a query that a port must refuse with errSecParam: a class, service
// or account that is missing or of the wrong type, a class other than generic passwords, or an
// attribute that the operation does not know and so could not honour.
#pragma once

#include <optional>

#include "QVROAuth2Client/platform/KeychainItems.h"

namespace qvr {

// A query for an existing item.
struct KeychainItemQuery {
  KeychainItemName name;
  bool returnsData = false;
};
std::optional<KeychainItemQuery> readItemQuery(const KeychainQuery& query);

// An item to add. `data` points into the attributes.
struct NewKeychainItem {
  KeychainItemName name;
  const Data* data;
};
std::optional<NewKeychainItem> readNewItem(const KeychainQuery& attributes);

// The data that replaces an item's, borrowed from the attributes; null when they are refused.
const Data* readReplacementData(const KeychainQuery& attributesToUpdate);

}  // namespace qvr
