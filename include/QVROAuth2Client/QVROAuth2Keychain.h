// The keychain store: byte strings kept as generic-password items of the host's keychain, one for
// each service and account.
//
// The item's service is derived: the bundle identifier (left out when there is none), the service
// argument and "OAuth2Token", joined with ".". Errors are of NSOSStatusErrorDomain with the
// keychain's status as code and its message, when it has one, as description; see KeychainItems.h.
// Nothing is retried, and the store never removes an item on its own.
//
// Thread rule: any thread. Synchronous calls on one instance exclude each other; asynchronous calls
// of all instances run one at a time, in order, on a queue of their own; the two kinds do not
// exclude each other.
//
// An absent service or account is a programming error: InvalidArgumentException.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Executor.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"

// Called once, with the data and null, or with nothing and the error.
using QVROAuth2KeychainDataCompletion =
    std::function<void(std::optional<qvr::Data> data, qvr::ErrorPtr error)>;

// Called once, with true and null, or with false and the error.
using QVROAuth2KeychainCompletion = std::function<void(bool success, qvr::ErrorPtr error)>;

class QVR_EXPORT QVROAuth2Keychain final : public qvr::Object {
 public:
  // defaultOAuth2Keychain
  // The shared instance. Raises InternalInconsistencyException when the host chose no keychain.
  static qvr::Ref<QVROAuth2Keychain> defaultOAuth2Keychain();

  // init
  // Another instance; it shares the items and the queues, and has a monitor of its own. Raises as
  // above.
  static qvr::Ref<QVROAuth2Keychain> init();

  // queue
  // The serial work queue of the asynchronous operations, one for the process.
  static qvr::Ref<qvr::Executor> queue();

  // delegateQueue
  // The serial queue of completions that name no queue of their own, one for the process.
  qvr::Ref<qvr::Executor> delegateQueue() const;

  // serviceNameForService:
  static std::string serviceNameForService(qvr::TextView service);

  // passwordDataForService:account:error:
  // The stored bytes; absent, with *error set, on failure (-25300 when there is no item). *error is
  // left alone on success, in all three operations.
  std::optional<qvr::Data> passwordDataForService(qvr::TextView service, qvr::TextView account,
                                                  qvr::ErrorPtr* error = nullptr);

  // setPasswordData:forService:account:error:
  // Adds the item or replaces its data. True on success.
  bool setPasswordData(const qvr::Data& data, qvr::TextView service, qvr::TextView account,
                       qvr::ErrorPtr* error = nullptr);

  // removePasswordDataForService:account:error:
  // Removes the item; failing with -25300 when there is none. True on success.
  bool removePasswordDataForService(qvr::TextView service, qvr::TextView account,
                                    qvr::ErrorPtr* error = nullptr);

  // The asynchronous forms return at once. The work is done on queue(); `completion`, which may be
  // empty, then runs on `queue`, or on delegateQueue() when `queue` is null. An absent service
  // raises at once; an absent account raises on the work queue, which ends the process.

  // getPasswordDataForService:account:queue:completion:
  void getPasswordDataForService(qvr::TextView service, qvr::TextView account,
                                 qvr::Ref<qvr::Executor> queue,
                                 QVROAuth2KeychainDataCompletion completion);

  // setPasswordData:forService:account:queue:completion:
  void setPasswordData(qvr::Data data, qvr::TextView service, qvr::TextView account,
                       qvr::Ref<qvr::Executor> queue, QVROAuth2KeychainCompletion completion);

  // removePasswordDataForService:account:queue:completion:
  void removePasswordDataForService(qvr::TextView service, qvr::TextView account,
                                    qvr::Ref<qvr::Executor> queue,
                                    QVROAuth2KeychainCompletion completion);

 private:
  struct QVR_HIDDEN Fields;
  friend struct QVROAuth2KeychainPrimitives;
  QVROAuth2Keychain();
  ~QVROAuth2Keychain() override;

  // The primitives take the derived service name, and no lock.
  static qvr::KeychainQuery queryForService(qvr::TextView service, qvr::TextView account,
                                            const qvr::KeychainQuery* returnType);
  std::optional<qvr::Data> passwordDataNoLockForService(qvr::TextView service,
                                                        qvr::TextView account,
                                                        qvr::ErrorPtr* error) const;
  bool setPasswordDataNoLock(const qvr::Data& data, qvr::TextView service, qvr::TextView account,
                             qvr::ErrorPtr* error) const;
  bool removePasswordDataNoLockForService(qvr::TextView service, qvr::TextView account,
                                          qvr::ErrorPtr* error) const;

  const std::unique_ptr<Fields> fields_;
};
