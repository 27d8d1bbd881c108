// A keychain that tells each operation and its outcome as a step (see Steps.h): the item by its
// name, its data by their size. One stands around the real keychain when steps are shown.
#pragma once

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Object.h"

namespace host {

// Thread rule: any thread.
class NarratedKeychain final : public qvr::KeychainItems {
 public:
  // `items` does the work.
  explicit NarratedKeychain(qvr::Ref<qvr::KeychainItems> items);

  std::int32_t copyMatching(const qvr::KeychainQuery& query, qvr::Data* result) override;
  std::int32_t add(const qvr::KeychainQuery& attributes) override;
  std::int32_t update(const qvr::KeychainQuery& query,
                      const qvr::KeychainQuery& attributesToUpdate) override;
  std::int32_t remove(const qvr::KeychainQuery& query) override;
  std::int32_t list(std::vector<qvr::KeychainItemName>* names) override;
  qvr::Text messageForStatus(std::int32_t status) const override;

 private:
  const qvr::Ref<qvr::KeychainItems> items_;
};

// The keychain, narrated if steps are shown.
qvr::Ref<qvr::KeychainItems> narratedIfShown(qvr::Ref<qvr::KeychainItems> items);

}  // namespace host
