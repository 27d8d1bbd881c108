// The asynchronous operations: the work is done on one serial queue, and its result is delivered on
// another.

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "src/platform/World.h"
#include "src/storage/KeychainQueues.h"

namespace {

struct DelegateQueue {
  qvr::Ref<qvr::Executor> queue = makeKeychainQueue("delegateQueue");
};

// Runs `work(error)` on the work queue, and hands its result and error to the completion on the
// delivery queue. Without a completion the result is dropped.
template <class Work, class Completion>
void perform(const QVROAuth2Keychain* keychain, qvr::Ref<qvr::Executor> queue, Work work,
             Completion completion) {
  QVROAuth2Keychain::queue()->async([receiver = qvr::Ref<const QVROAuth2Keychain>::retain(keychain),
                                     queue = std::move(queue), work = std::move(work),
                                     completion = std::move(completion)]() mutable {
    qvr::ErrorPtr error;
    auto result = work(&error);
    if (!completion) return;
    const qvr::Ref<qvr::Executor> delivery = queue ? std::move(queue) : receiver->delegateQueue();
    delivery->async(
        [completion = std::move(completion), result = std::move(result),
         error = std::move(error)]() mutable { completion(std::move(result), std::move(error)); });
  });
}

}  // namespace

qvr::Ref<qvr::Executor> QVROAuth2Keychain::delegateQueue() const {
  return qvr::World::current().state<DelegateQueue>().queue;
}

void QVROAuth2Keychain::getPasswordDataForService(qvr::TextView service, qvr::TextView account,
                                                  qvr::Ref<qvr::Executor> queue,
                                                  QVROAuth2KeychainDataCompletion completion) {
  perform(
      this, std::move(queue),
      [this, serviceName = serviceNameForService(service),
       account = account.text()](qvr::ErrorPtr* error) {
        return passwordDataNoLockForService(serviceName, account, error);
      },
      std::move(completion));
}

void QVROAuth2Keychain::setPasswordData(qvr::Data data, qvr::TextView service,
                                        qvr::TextView account, qvr::Ref<qvr::Executor> queue,
                                        QVROAuth2KeychainCompletion completion) {
  perform(
      this, std::move(queue),
      [this, data = std::move(data), serviceName = serviceNameForService(service),
       account = account.text()](qvr::ErrorPtr* error) {
        return setPasswordDataNoLock(data, serviceName, account, error);
      },
      std::move(completion));
}

void QVROAuth2Keychain::removePasswordDataForService(qvr::TextView service, qvr::TextView account,
                                                     qvr::Ref<qvr::Executor> queue,
                                                     QVROAuth2KeychainCompletion completion) {
  perform(
      this, std::move(queue),
      [this, serviceName = serviceNameForService(service),
       account = account.text()](qvr::ErrorPtr* error) {
        return removePasswordDataNoLockForService(serviceName, account, error);
      },
      std::move(completion));
}
