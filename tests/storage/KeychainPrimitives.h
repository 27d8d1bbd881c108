// Reaches the primitives of the keychain store, which take the derived service name and no lock.
#pragma once

#include "QVROAuth2Client/QVROAuth2Keychain.h"

struct QVROAuth2KeychainPrimitives {
  static qvr::KeychainQuery query(qvr::TextView service, qvr::TextView account,
                                  const qvr::KeychainQuery* furtherEntries = nullptr) {
    return QVROAuth2Keychain::queryForService(service, account, furtherEntries);
  }

  static std::optional<qvr::Data> passwordData(const QVROAuth2Keychain& keychain,
                                               qvr::TextView service, qvr::TextView account,
                                               qvr::ErrorPtr* error = nullptr) {
    return keychain.passwordDataNoLockForService(service, account, error);
  }

  static bool set(const QVROAuth2Keychain& keychain, const qvr::Data& data, qvr::TextView service,
                  qvr::TextView account, qvr::ErrorPtr* error = nullptr) {
    return keychain.setPasswordDataNoLock(data, service, account, error);
  }

  static bool remove(const QVROAuth2Keychain& keychain, qvr::TextView service,
                     qvr::TextView account, qvr::ErrorPtr* error = nullptr) {
    return keychain.removePasswordDataNoLockForService(service, account, error);
  }
};
