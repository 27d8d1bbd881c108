// The keychain store: names, queries and the synchronous operations.

#include "QVROAuth2Client/QVROAuth2Keychain.h"

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/World.h"
#include "src/storage/KeychainFields.h"
#include "src/storage/KeychainQueues.h"

namespace {

// Room for most identifiers; what is longer grows.
constexpr std::size_t kUsualIdentifierSize = 63;

struct DefaultKeychain {
  qvr::Ref<QVROAuth2Keychain> keychain = QVROAuth2Keychain::init();
};

struct WorkQueue {
  qvr::Ref<qvr::Executor> queue = makeKeychainQueue("queue");
};

qvr::ErrorPtr errorForStatus(const qvr::KeychainItems& items, std::int32_t status) {
  const qvr::Text message = items.messageForStatus(status);
  if (!message) return qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain, status);
  return qvr::Error::errorWithDomain(
      qvr::NSOSStatusErrorDomain, status,
      qvr::Error::UserInfo{{std::string(qvr::NSLocalizedDescriptionKey), *message}});
}

// True for success; otherwise tells the caller who wants to know why not.
bool succeeded(const qvr::KeychainItems& items, std::int32_t status, qvr::ErrorPtr* error) {
  if (status == qvr::errSecSuccess) return true;
  if (error != nullptr) *error = errorForStatus(items, status);
  return false;
}

}  // namespace

std::string joinedIdentifier(std::initializer_list<std::string_view> parts) {
  const qvr::Text& bundleIdentifier = qvr::World::current().settings().bundleIdentifier;
  std::string text;
  text.reserve(kUsualIdentifierSize);
  if (bundleIdentifier) text.append(*bundleIdentifier) += '.';
  for (const std::string_view part : parts)
    text.append(part) += '.';
  text.pop_back();
  return text;
}

qvr::Ref<qvr::Executor> makeKeychainQueue(std::string_view name) {
  return qvr::World::current().makeSerialQueue(joinedIdentifier({"QVROAuth2Keychain", name}));
}

QVROAuth2Keychain::QVROAuth2Keychain()
    : fields_(std::make_unique<Fields>(qvr::World::current().keychainItems())) {}

QVROAuth2Keychain::~QVROAuth2Keychain() = default;

qvr::Ref<QVROAuth2Keychain> QVROAuth2Keychain::init() {
  return qvr::Ref<QVROAuth2Keychain>::adopt(new QVROAuth2Keychain);
}

qvr::Ref<QVROAuth2Keychain> QVROAuth2Keychain::defaultOAuth2Keychain() {
  return qvr::World::current().state<DefaultKeychain>().keychain;
}

qvr::Ref<qvr::Executor> QVROAuth2Keychain::queue() {
  return qvr::World::current().state<WorkQueue>().queue;
}

std::string QVROAuth2Keychain::serviceNameForService(qvr::TextView service) {
  if (!service.has_value()) {
    throw qvr::InvalidArgumentException(
        "*** +[QVROAuth2Keychain serviceNameForService:]: nil service");
  }
  return joinedIdentifier({service.view(), "OAuth2Token"});
}

qvr::KeychainQuery QVROAuth2Keychain::queryForService(qvr::TextView service, qvr::TextView account,
                                                      const qvr::KeychainQuery* returnType) {
  if (!service.has_value() || !account.has_value()) {
    throw qvr::InvalidArgumentException(
        std::string("*** -[QVROAuth2Keychain queryForService:account:returnType:]: nil ") +
        (service.has_value() ? "account" : "service"));
  }
  qvr::KeychainQuery query;
  if (returnType != nullptr) query = *returnType;  // a further entry replaces one of the three
  query.try_emplace(std::string(qvr::kSecClass), qvr::kSecClassGenericPassword);
  query.try_emplace(std::string(qvr::kSecAttrAccount), account.view());
  query.try_emplace(std::string(qvr::kSecAttrService), service.view());
  return query;
}

std::optional<qvr::Data> QVROAuth2Keychain::passwordDataNoLockForService(
    qvr::TextView service, qvr::TextView account, qvr::ErrorPtr* error) const {
  const qvr::KeychainQuery returnType = {{std::string(qvr::kSecReturnData), true}};
  qvr::Data data;
  const std::int32_t status =
      fields_->items->copyMatching(queryForService(service, account, &returnType), &data);
  if (!succeeded(*fields_->items, status, error)) return std::nullopt;
  return data;
}

bool QVROAuth2Keychain::setPasswordDataNoLock(const qvr::Data& data, qvr::TextView service,
                                              qvr::TextView account, qvr::ErrorPtr* error) const {
  qvr::KeychainQuery query = queryForService(service, account, nullptr);
  std::int32_t status = fields_->items->copyMatching(query, nullptr);
  if (status == qvr::errSecItemNotFound) {
    query.insert_or_assign(std::string(qvr::kSecValueData), data);
    status = fields_->items->add(query);
  } else if (status == qvr::errSecSuccess) {
    status = fields_->items->update(query, {{std::string(qvr::kSecValueData), data}});
  }
  return succeeded(*fields_->items, status, error);
}

bool QVROAuth2Keychain::removePasswordDataNoLockForService(qvr::TextView service,
                                                           qvr::TextView account,
                                                           qvr::ErrorPtr* error) const {
  return succeeded(*fields_->items,
                   fields_->items->remove(queryForService(service, account, nullptr)), error);
}

std::optional<qvr::Data> QVROAuth2Keychain::passwordDataForService(qvr::TextView service,
                                                                   qvr::TextView account,
                                                                   qvr::ErrorPtr* error) {
  const std::string serviceName = serviceNameForService(service);
  qvr::RecursiveMutexLock lock(fields_->monitor);
  return passwordDataNoLockForService(serviceName, account, error);
}

bool QVROAuth2Keychain::setPasswordData(const qvr::Data& data, qvr::TextView service,
                                        qvr::TextView account, qvr::ErrorPtr* error) {
  const std::string serviceName = serviceNameForService(service);
  qvr::RecursiveMutexLock lock(fields_->monitor);
  return setPasswordDataNoLock(data, serviceName, account, error);
}

bool QVROAuth2Keychain::removePasswordDataForService(qvr::TextView service, qvr::TextView account,
                                                     qvr::ErrorPtr* error) {
  const std::string serviceName = serviceNameForService(service);
  qvr::RecursiveMutexLock lock(fields_->monitor);
  return removePasswordDataNoLockForService(serviceName, account, error);
}
