#include "src/ports/SecretServiceKeychain.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "src/platform/KeychainAttributes.h"
#include "src/platform/Unicode.h"
#include "src/ports/SecretServiceLockFolder.h"
#include "src/ports/SecretServicePayload.h"

namespace qvr {

namespace {

using Paths = SecretService::Paths;

bool isBusText(const std::string& text) {
  return isUTF8(text) && text.find('\0') == std::string::npos;
}

bool isUsable(const KeychainItemName& name) {
  return isBusText(name.service) && isBusText(name.account);
}

SecretServiceFailure notFound() {
  return {errSecItemNotFound};
}

// The items of this name that are open, empty when there are none. Some services lock items one by
// one, and an item may lie in a keyring that is not the default one: those are asked for too, since
// a locked item must not pass for a missing one.
Paths find(SecretService& service, const KeychainItemName& name) {
  SecretService::Found found = service.search(name);
  if (!found.unlocked.empty() || found.locked.empty()) return std::move(found.unlocked);
  service.unlock(found.locked);
  found = service.search(name);
  if (found.unlocked.empty() && !found.locked.empty()) throw keyringIsLocked();
  return std::move(found.unlocked);
}

Paths findOrFail(SecretService& service, const KeychainItemName& name) {
  Paths items = find(service, name);
  if (items.empty()) throw notFound();
  return items;
}

// An empty value is what a service shows while it is locked, and may have been since the gate.
ReceivedSecret payloadOf(SecretService& service, const std::string& item) {
  ReceivedSecret payload = service.secretOf(item);
  if (!payload.bytes.empty()) return payload;
  service.openDefaultKeyring();
  return service.secretOf(item);
}

Data read(SecretService& service, const std::string& item) {
  std::optional<Data> data = decodeSecretServicePayload(payloadOf(service, item).bytes);
  if (!data) throw SecretServiceFailure{errSecDecode};
  return std::move(*data);
}

// What a write that had no effect is: a service that was locked meanwhile reports success too.
SecretServiceFailure writeWasLost(SecretService& service) {
  return service.isDefaultKeyringLocked() ? keyringIsLocked() : SecretServiceFailure{errSecIO};
}

void requireStored(SecretService& service, const std::string& item, Bytes payload) {
  if (!std::ranges::equal(service.secretOf(item).bytes, payload)) throw writeWasLost(service);
}

void replace(SecretService& service, const Paths& items, Bytes payload) {
  for (const std::string& item : items) {
    service.setSecretOf(item, payload);
    requireStored(service, item, payload);
  }
}

void create(SecretService& service, const KeychainItemName& name, Bytes payload) {
  service.createItem(name, payload);
  const Paths made = service.search(name).unlocked;
  if (made.empty()) throw writeWasLost(service);
  requireStored(service, made.front(), payload);
}

bool isAnyLeft(const Paths& removed, const SecretService::Found& left) {
  const auto isLeft = [&left](const std::string& item) {
    return std::ranges::count(left.unlocked, item) + std::ranges::count(left.locked, item) > 0;
  };
  return std::ranges::any_of(removed, isLeft);
}

bool isOfTheLibrary(std::string_view service) {
  return service == "OAuth2Token" || service.ends_with(".OAuth2Token");
}

std::optional<KeychainItemName> nameIn(const SecretService::Attributes& attributes) {
  const auto service = attributes.find("service");
  const auto account = attributes.find("account");
  if (service == attributes.end() || account == attributes.end()) return std::nullopt;
  if (!isOfTheLibrary(service->second)) return std::nullopt;
  return KeychainItemName{service->second, account->second};
}

}  // namespace

std::int32_t SecretServiceKeychain::copyMatching(const KeychainQuery& query, Data* result) {
  const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
  if (!wanted || !isUsable(wanted->name)) return errSecParam;
  return perform([&](SecretService& service) {
    const Paths items = findOrFail(service, wanted->name);
    if (result != nullptr && wanted->returnsData) *result = read(service, items.front());
  });
}

std::int32_t SecretServiceKeychain::add(const KeychainQuery& attributes) {
  const std::optional<NewKeychainItem> item = readNewItem(attributes);
  if (!item || !isUsable(item->name)) return errSecParam;
  const SecretBytes payload = encodeSecretServicePayload(*item->data);
  const Bytes bytes(payload.data(), payload.size());
  bool isMade = false;  // perhaps, by a service that died before it could say so
  return perform([&](SecretService& service) {
    const DirectoryLock lock = lockWriters(service.callTimeout());
    const Paths items = find(service, item->name);
    if (!items.empty() && !isMade) throw SecretServiceFailure{errSecDuplicateItem};
    if (!items.empty()) return replace(service, items, bytes);
    isMade = true;
    create(service, item->name, bytes);
  });
}

std::int32_t SecretServiceKeychain::update(const KeychainQuery& query,
                                           const KeychainQuery& attributesToUpdate) {
  const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
  const Data* const data = readReplacementData(attributesToUpdate);
  if (!wanted || !isUsable(wanted->name) || data == nullptr) return errSecParam;
  const SecretBytes payload = encodeSecretServicePayload(*data);
  return perform([&](SecretService& service) {
    replace(service, findOrFail(service, wanted->name), Bytes(payload.data(), payload.size()));
  });
}

std::int32_t SecretServiceKeychain::remove(const KeychainQuery& query) {
  const std::optional<KeychainItemQuery> wanted = readItemQuery(query);
  if (!wanted || !isUsable(wanted->name)) return errSecParam;
  bool isRemoved = false;  // perhaps, by a service that died before it could say so
  return perform([&](SecretService& service) {
    const Paths items = find(service, wanted->name);
    if (items.empty() && !isRemoved) throw notFound();
    for (const std::string& item : items) {
      isRemoved = true;
      service.deleteItem(item);
    }
    const SecretService::Found left = service.search(wanted->name);
    if (isAnyLeft(items, left)) throw writeWasLost(service);
    if (!left.locked.empty()) throw keyringIsLocked();  // one of the same name would be found next
  });
}

std::int32_t SecretServiceKeychain::list(std::vector<KeychainItemName>* names) {
  return perform([&](SecretService& service) {
    std::vector<KeychainItemName> found;
    for (const auto& attributes : service.attributesOf(service.items())) {
      std::optional<KeychainItemName> name = attributes ? nameIn(*attributes) : std::nullopt;
      if (name) found.push_back(std::move(*name));
    }
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    *names = std::move(found);
  });
}

DirectoryLock SecretServiceKeychain::lockWriters(std::chrono::milliseconds deadline) const {
  const std::string folder = lockFolder_.empty() ? secretServiceLockFolder() : lockFolder_;
  return PrivateDirectory::openOrMake(FileCalls::system(), folder).lock(deadline);
}

// Runs an operation on the open default keyring and answers its status.
std::int32_t SecretServiceKeychain::perform(const std::function<void(SecretService&)>& operation) {
  MutexLock lock(mutex_);
  try {
    try {
      performOnce(operation);
    } catch (const SecretServiceFailure& failure) {
      if (!failure.isDeath) throw;
      performOnce(operation);
    }
    return errSecSuccess;
  } catch (const SecretServiceFailure& failure) {
    return failure.status;
  } catch (const KeychainFailure& failure) {
    return failure.status;
  } catch (const std::bad_alloc&) {
    return errSecAllocate;
  } catch (const std::system_error&) {  // no thread to wait for the lock
    return errSecNotAvailable;
  }
}

void SecretServiceKeychain::performOnce(const std::function<void(SecretService&)>& operation) {
  try {
    if (!service_) service_ = SecretService::connect(options_);
    service_->openDefaultKeyring();
    operation(*service_);
  } catch (const SecretServiceFailure& failure) {
    if (failure.isDeath) service_.reset();
    throw;
  }
}

inline namespace v1 {

Ref<KeychainItems> makeSecretServiceKeychain(SecretServiceOptions options) {
  return makeRef<SecretServiceKeychain>(std::move(options));
}

SecretServiceState examineSecretService(const SecretServiceOptions& options) {
  using Kind = SecretServiceState::Kind;
  try {
    if (!SecretService::connect(options)->isDefaultKeyringLocked()) return {Kind::kReady};
    return {Kind::kLocked, keyringIsLocked().reason};
  } catch (const SecretServiceFailure& failure) {
    return {Kind::kAbsent, failure.reason};
  }
}

}  // namespace v1
}  // namespace qvr
