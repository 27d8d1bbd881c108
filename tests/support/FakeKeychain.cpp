#include "tests/support/FakeKeychain.h"

#include <algorithm>

#include "QVROAuth2Client/platform/Ports.h"

namespace support {

namespace {

qvr::KeychainQuery itemQuery(const std::string& service, const std::string& account) {
  return {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
          {std::string(qvr::kSecAttrService), service},
          {std::string(qvr::kSecAttrAccount), account}};
}

}  // namespace

FakeKeychain::FakeKeychain() : items_(qvr::makeInMemoryKeychain()) {}

std::int32_t FakeKeychain::note(Call call) {
  std::function<std::int32_t(const Call&)> decide;
  std::function<void(const Call&)> observer;
  {
    qvr::MutexLock lock(mutex_);
    calls_.push_back(call);
    decide = decide_;
    observer = observer_;
  }
  if (observer) observer(call);
  return decide ? decide(call) : 0;
}

std::int32_t FakeKeychain::copyMatching(const qvr::KeychainQuery& query, qvr::Data* result) {
  const std::int32_t status = note({"copyMatching", query, {}, result != nullptr});
  return status != 0 ? status : items_->copyMatching(query, result);
}

std::int32_t FakeKeychain::add(const qvr::KeychainQuery& attributes) {
  const std::int32_t status = note({"add", attributes, {}, false});
  return status != 0 ? status : items_->add(attributes);
}

std::int32_t FakeKeychain::update(const qvr::KeychainQuery& query,
                                  const qvr::KeychainQuery& attributesToUpdate) {
  const std::int32_t status = note({"update", query, attributesToUpdate, false});
  return status != 0 ? status : items_->update(query, attributesToUpdate);
}

std::int32_t FakeKeychain::remove(const qvr::KeychainQuery& query) {
  const std::int32_t status = note({"remove", query, {}, false});
  return status != 0 ? status : items_->remove(query);
}

std::int32_t FakeKeychain::list(std::vector<qvr::KeychainItemName>* names) {
  return items_->list(names);
}

void FakeKeychain::failWith(std::function<std::int32_t(const Call&)> decide) {
  qvr::MutexLock lock(mutex_);
  decide_ = std::move(decide);
}

void FakeKeychain::failEvery(std::string operation, std::int32_t status) {
  failWith([operation = std::move(operation), status](const Call& call) {
    return call.operation == operation ? status : 0;
  });
}

void FakeKeychain::onCall(std::function<void(const Call&)> observer) {
  qvr::MutexLock lock(mutex_);
  observer_ = std::move(observer);
}

std::vector<FakeKeychain::Call> FakeKeychain::calls() const {
  qvr::MutexLock lock(mutex_);
  return calls_;
}

std::size_t FakeKeychain::count(const std::string& operation) const {
  qvr::MutexLock lock(mutex_);
  return static_cast<std::size_t>(std::count_if(
      calls_.begin(), calls_.end(), [&](const Call& call) { return call.operation == operation; }));
}

void FakeKeychain::put(const std::string& service, const std::string& account, qvr::Data data) {
  qvr::KeychainQuery query = itemQuery(service, account);
  items_->remove(query);
  query.emplace(qvr::kSecValueData, std::move(data));
  items_->add(query);
}

std::optional<qvr::Data> FakeKeychain::stored(const std::string& service,
                                              const std::string& account) const {
  qvr::KeychainQuery query = itemQuery(service, account);
  query.emplace(qvr::kSecReturnData, true);
  qvr::Data data;
  if (items_->copyMatching(query, &data) != 0) return std::nullopt;
  return data;
}

std::size_t FakeKeychain::itemCount() const {
  std::vector<qvr::KeychainItemName> names;
  items_->list(&names);
  return names.size();
}

}  // namespace support
