// The fields of a keychain instance.
#pragma once

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "src/platform/Mutex.h"

struct QVROAuth2Keychain::Fields {
  explicit Fields(qvr::Ref<qvr::KeychainItems> hostItems) : items(std::move(hostItems)) {}

  const qvr::Ref<qvr::KeychainItems> items;

  // Serialises the synchronous operations of this instance, and those alone.
  qvr::RecursiveMutex monitor;
};
