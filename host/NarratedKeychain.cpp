#include "host/NarratedKeychain.h"

#include <chrono>
#include <string>
#include <utility>

#include "host/Steps.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

std::string textIn(const qvr::KeychainQuery& query, std::string_view key) {
  const auto found = query.find(key);
  return found == query.end() ? "" : found->second.text().value_or("");
}

std::string itemIn(const qvr::KeychainQuery& query) {
  return "the item of " + textIn(query, qvr::kSecAttrAccount) + " under " +
         textIn(query, qvr::kSecAttrService);
}

std::string dataIn(const qvr::KeychainQuery& attributes) {
  const auto found = attributes.find(qvr::kSecValueData);
  const auto* const data = found == attributes.end() ? nullptr : found->second.as<qvr::Data>();
  return data == nullptr ? "" : " (" + std::to_string(data->size()) + " bytes)";
}

// An operation from its start to its end.
class Operation {
 public:
  explicit Operation(std::string what) : what_("keychain: " + std::move(what)) { step(what_); }

  // `result` is what is said of a success.
  std::int32_t end(const qvr::KeychainItems& items, std::int32_t status,
                   const std::string& result = "done") const {
    const auto taken =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_).count();
    step(what_ + ": " + (status == qvr::errSecSuccess ? result : failure(items, status)) +
         " after " + std::to_string(taken) + " ms");
    return status;
  }

 private:
  static std::string failure(const qvr::KeychainItems& items, std::int32_t status) {
    if (status == qvr::errSecItemNotFound) return "there is none,";
    const qvr::Text message = items.messageForStatus(status);
    return "status " + std::to_string(status) + (message ? " (" + *message + ")" : "");
  }

  const std::string what_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace

NarratedKeychain::NarratedKeychain(qvr::Ref<qvr::KeychainItems> items) : items_(std::move(items)) {}

std::int32_t NarratedKeychain::copyMatching(const qvr::KeychainQuery& query, qvr::Data* result) {
  const Operation operation((result != nullptr ? "read " : "look for ") + itemIn(query));
  const std::int32_t status = items_->copyMatching(query, result);
  return operation.end(
      *items_, status,
      result != nullptr ? std::to_string(result->size()) + " bytes" : "it is there,");
}

std::int32_t NarratedKeychain::add(const qvr::KeychainQuery& attributes) {
  const Operation operation("add " + itemIn(attributes) + dataIn(attributes));
  return operation.end(*items_, items_->add(attributes));
}

std::int32_t NarratedKeychain::update(const qvr::KeychainQuery& query,
                                      const qvr::KeychainQuery& attributesToUpdate) {
  const Operation operation("replace " + itemIn(query) + dataIn(attributesToUpdate));
  return operation.end(*items_, items_->update(query, attributesToUpdate));
}

std::int32_t NarratedKeychain::remove(const qvr::KeychainQuery& query) {
  const Operation operation("remove " + itemIn(query));
  return operation.end(*items_, items_->remove(query));
}

std::int32_t NarratedKeychain::list(std::vector<qvr::KeychainItemName>* names) {
  const Operation operation("list the items");
  const std::int32_t status = items_->list(names);
  const bool isListed = status == qvr::errSecSuccess && names != nullptr;
  return operation.end(*items_, status, isListed ? std::to_string(names->size()) : "done");
}

qvr::Text NarratedKeychain::messageForStatus(std::int32_t status) const {
  return items_->messageForStatus(status);
}

qvr::Ref<qvr::KeychainItems> narratedIfShown(qvr::Ref<qvr::KeychainItems> items) {
  if (!stepsAreShown()) return items;
  return qvr::makeRef<NarratedKeychain>(std::move(items));
}

}  // namespace host
