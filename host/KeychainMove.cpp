#include "host/KeychainMove.h"

#include <utility>

#include "host/Configuration.h"
#include "host/Deadline.h"
#include "host/Keychains.h"
#include "host/Messages.h"
#include "host/Record.h"

namespace host {
namespace {

using qvr::KeychainItemName;
using qvr::KeychainQuery;

KeychainQuery queryFor(const KeychainItemName& name) {
  return {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
          {std::string(qvr::kSecAttrService), name.service},
          {std::string(qvr::kSecAttrAccount), name.account}};
}

std::int32_t read(qvr::KeychainItems& items, const KeychainItemName& name, qvr::Data* data) {
  KeychainQuery query = queryFor(name);
  query.emplace(qvr::kSecReturnData, true);
  return items.copyMatching(query, data);
}

KeychainQuery withData(KeychainQuery query, const qvr::Data& data) {
  query.emplace(qvr::kSecValueData, data);
  return query;
}

Account accountOf(const KeychainItemName& name) {
  return {std::string(providerOfService(name.service)), name.account};
}

std::string accountText(const KeychainItemName& name) {
  const Account account = accountOf(name);
  return account.username + " at " + account.provider;
}

// Between two items, which is where one can stop.
std::optional<Failure> noTimeLeft() {
  if (isTimeLeft()) return std::nullopt;
  return Failure{kTryAgainLater, "The time that --timeout gives is over: give more."};
}

}  // namespace

std::optional<std::string_view> keychainNamed(std::string_view name) {
  if (name == kSecretService) return kSecretService;
  if (name == "file" || name == kEncryptedFile) return kEncryptedFile;
  return std::nullopt;
}

KeychainMove::KeychainMove(Keychain source, Keychain target, bool targetIsInUse,
                           CreationDate creationDate)
    : source_(std::move(source)),
      target_(std::move(target)),
      targetIsInUse_(targetIsInUse),
      creationDate_(std::move(creationDate)) {}

// Items of other services are other programs', or those of a configuration of another name.
std::optional<Failure> KeychainMove::check() {
  std::vector<KeychainItemName> names;
  const std::int32_t status = source_.items->list(&names);
  if (status != qvr::errSecSuccess && status != qvr::errSecItemNotFound)
    return failed(source_, {}, status);
  for (const KeychainItemName& name : names) {
    if (providerOfService(name.service).empty()) continue;
    if (auto failure = noTimeLeft()) return failure;
    if (auto failure = checkItem(name)) return failure;
  }
  if (!conflicts_.empty()) return conflict();
  return std::nullopt;
}

// A damaged item of the target holds no token that could be lost.
std::optional<Failure> KeychainMove::checkItem(const KeychainItemName& name) {
  Item item{name, {}, Action::kAdd};
  std::int32_t status = read(*source_.items, name, &item.data);
  if (status == qvr::errSecItemNotFound) return std::nullopt;  // removed since it was listed
  if (status != qvr::errSecSuccess) return failed(source_, name, status);
  qvr::Data there;
  status = read(*target_.items, name, &there);
  const bool isMissing = status == qvr::errSecItemNotFound;
  const bool isDamaged = status == qvr::errSecDecode;
  if (status != qvr::errSecSuccess && !isMissing && !isDamaged)
    return failed(target_, name, status);
  if (isMissing) {
    item.action = Action::kAdd;
  } else if (isDamaged || (there != item.data && isNewer(item.data, there))) {
    item.action = Action::kUpdate;
  } else if (there == item.data || (targetIsInUse_ && isNewer(there, item.data))) {
    item.action = Action::kNothing;
  } else {
    conflicts_.push_back(name);
  }
  items_.push_back(std::move(item));
  return std::nullopt;
}

std::optional<Failure> KeychainMove::copy() const {
  for (const Item& item : items_) {
    if (item.action == Action::kNothing) continue;
    if (auto failure = noTimeLeft()) return failure;
    if (auto failure = copyItem(item)) return failure;
  }
  return std::nullopt;
}

// What was written is read back: there are keyrings that take an item, say so, and do not keep it.
std::optional<Failure> KeychainMove::copyItem(const Item& item) const {
  const KeychainQuery query = queryFor(item.name);
  const std::int32_t written =
      item.action == Action::kAdd
          ? target_.items->add(withData(query, item.data))
          : target_.items->update(query, withData(KeychainQuery(), item.data));
  if (written != qvr::errSecSuccess) return failed(target_, item.name, written);
  return expectInTarget(item, " was stored and did not come back whole from " +
                                  std::string(keychainName(target_.kind)) +
                                  ": see that it is unlocked, and try again.");
}

// Of an item that was there before, some token is enough: check() has found it the one to keep.
std::optional<Failure> KeychainMove::expectInTarget(const Item& item,
                                                    const std::string& otherwise) const {
  qvr::Data there;
  const std::int32_t status = read(*target_.items, item.name, &there);
  if (status != qvr::errSecSuccess && status != qvr::errSecItemNotFound)
    return failed(target_, item.name, status);
  if (status == qvr::errSecSuccess && (item.action == Action::kNothing || there == item.data))
    return std::nullopt;
  return Failure{kTryAgainLater, "The token of " + accountText(item.name) + otherwise};
}

std::optional<Failure> KeychainMove::removeOld() const {
  for (const Item& item : items_) {
    if (auto failure = noTimeLeft()) return failure;
    if (auto failure = removeItem(item)) return failure;
  }
  return std::nullopt;
}

std::optional<Failure> KeychainMove::removeItem(const Item& item) const {
  qvr::Data now;
  std::int32_t status = read(*source_.items, item.name, &now);
  if (status == qvr::errSecItemNotFound) return std::nullopt;
  if (status != qvr::errSecSuccess) return failed(source_, item.name, status);
  if (now != item.data) {
    return Failure{kTryAgainLater, "The token of " + accountText(item.name) +
                                       " has changed while it was moved, and stays."};
  }
  if (auto failure = expectInTarget(
          item, " is not in " + std::string(keychainName(target_.kind)) + " any more, and stays."))
    return failure;
  status = source_.items->remove(queryFor(item.name));
  if (status == qvr::errSecSuccess || status == qvr::errSecItemNotFound) return std::nullopt;
  return failed(source_, item.name, status);
}

std::vector<std::string> KeychainMove::replaced() const {
  std::vector<std::string> accounts;
  for (const Item& item : items_) {
    if (item.action == Action::kUpdate) accounts.push_back(accountText(item.name));
  }
  return accounts;
}

bool KeychainMove::isNewer(const qvr::Data& a, const qvr::Data& b) const {
  const auto dateOfA = creationDate_(a);
  const auto dateOfB = creationDate_(b);
  return dateOfA && (!dateOfB || *dateOfA > *dateOfB);
}

// A new sign-in is newer than both tokens, and goes to the keychain in use.
Failure KeychainMove::conflict() const {
  std::string accounts;
  for (const KeychainItemName& name : conflicts_)
    accounts += (accounts.empty() ? "" : ", ") + accountText(name);
  const Account first = accountOf(conflicts_.front());
  std::string sentence = "There is another token in " + std::string(keychainName(target_.kind)) +
                         ", not older than the one in " + std::string(keychainName(source_.kind)) +
                         ", for " + accounts +
                         ". To replace both, sign in again: " + signInCommand(first) + ".";
  if (!targetIsInUse_)
    sentence += " To keep the one in " + std::string(keychainName(target_.kind)) + ", remove the " +
                "other: " + commandLine("sign-out --local", first) + ".";
  return {kFailed, sentence + " Then run this command again."};
}

Failure KeychainMove::failed(const Keychain& keychain, const KeychainItemName& name,
                             std::int32_t status) const {
  return failureForKeychainStatus(status, keychain.kind, accountOf(name));
}

}  // namespace host
