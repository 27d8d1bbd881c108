// Carrying the tokens from one keychain to another, so that each of them is in at least one of the
// two at any moment, whatever fails and whenever the process ends. What was stored is as durable as
// the keychain makes it: a desktop's keyring may answer from memory and write its disk seconds
// later, so that a machine which loses its power then may lose what was moved.
//
//   check()       reads everything, and changes nothing
//   copy()        puts what is missing into the target, and reads each item back
//   (commit)      the caller makes the target the keychain in use
//   removeOld()   empties the source
//
// Doing all four again after any end completes what was begun.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Object.h"
#include "host/Failure.h"

namespace host {

// The kind (as keychain.kind has it) of the keychain that a user names; absent for another name.
std::optional<std::string_view> keychainNamed(std::string_view name);

// Thread rule: one thread. The configuration's exclusive lock is held meanwhile.
class KeychainMove {
 public:
  struct Keychain {
    std::string_view kind;
    qvr::Ref<qvr::KeychainItems> items;
  };

  // When the record in an item's data was made; absent for data that is no record.
  using CreationDate = std::function<std::optional<qvr::Date>(const qvr::Data& data)>;

  // `targetIsInUse` when a move that was interrupted has made it that already.
  KeychainMove(Keychain source, Keychain target, bool targetIsInUse, CreationDate creationDate);

  // Fails when an item cannot be read, and when the target has another token of an account that is
  // not older: which of the two is to be kept, the user says.
  std::optional<Failure> check();

  std::optional<Failure> copy() const;

  // Leaves an item alone that has changed since it was read, and one that is not in the target (any
  // more): a second move may be under way where files cannot be locked.
  std::optional<Failure> removeOld() const;

  // How many items there are to move, and those that take the place of an older one.
  std::size_t count() const { return items_.size(); }
  std::vector<std::string> replaced() const;

 private:
  enum class Action { kNothing, kAdd, kUpdate };
  struct Item {
    qvr::KeychainItemName name;
    qvr::Data data;
    Action action;
  };

  std::optional<Failure> checkItem(const qvr::KeychainItemName& name);
  std::optional<Failure> copyItem(const Item& item) const;
  std::optional<Failure> expectInTarget(const Item& item, const std::string& otherwise) const;
  std::optional<Failure> removeItem(const Item& item) const;
  bool isNewer(const qvr::Data& a, const qvr::Data& b) const;
  Failure conflict() const;
  Failure failed(const Keychain& keychain, const qvr::KeychainItemName& name,
                 std::int32_t status) const;

  const Keychain source_;
  const Keychain target_;
  const bool targetIsInUse_;
  const CreationDate creationDate_;
  std::vector<Item> items_;
  std::vector<qvr::KeychainItemName> conflicts_;
};

}  // namespace host
