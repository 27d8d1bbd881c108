// A keychain that records its calls and fails the ones the test picks.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "src/platform/Mutex.h"

namespace support {

class FakeKeychain final : public qvr::KeychainItems {
 public:
  struct Call {
    std::string operation;  // "copyMatching", "add", "update", "remove"
    qvr::KeychainQuery query;
    qvr::KeychainQuery attributes;  // of an update
    bool wantsData = false;
  };

  FakeKeychain();

  std::int32_t copyMatching(const qvr::KeychainQuery& query, qvr::Data* result) override;
  std::int32_t add(const qvr::KeychainQuery& attributes) override;
  std::int32_t update(const qvr::KeychainQuery& query,
                      const qvr::KeychainQuery& attributesToUpdate) override;
  std::int32_t remove(const qvr::KeychainQuery& query) override;
  std::int32_t list(std::vector<qvr::KeychainItemName>* names) override;

  // Decides on the status of a call before it is carried out; 0 lets it through.
  void failWith(std::function<std::int32_t(const Call&)> decide);
  void failEvery(std::string operation, std::int32_t status);
  void failNothing() { failWith(nullptr); }

  // Called during every operation, without a lock of the fake's.
  void onCall(std::function<void(const Call&)> observer);

  std::vector<Call> calls() const;
  std::size_t count(const std::string& operation) const;

  // Items as they are, past the fake's faults. `service` is the derived name.
  void put(const std::string& service, const std::string& account, qvr::Data data);
  std::optional<qvr::Data> stored(const std::string& service, const std::string& account) const;
  std::size_t itemCount() const;

 private:
  std::int32_t note(Call call);

  const qvr::Ref<qvr::KeychainItems> items_;
  mutable qvr::Mutex mutex_;
  std::vector<Call> calls_ QVR_GUARDED_BY(mutex_);
  std::function<std::int32_t(const Call&)> decide_ QVR_GUARDED_BY(mutex_);
  std::function<void(const Call&)> observer_ QVR_GUARDED_BY(mutex_);
};

}  // namespace support
