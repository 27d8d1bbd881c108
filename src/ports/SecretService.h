// The freedesktop Secret Service as its clients see it: one connection, a plain session, and the
// calls that a keychain makes.
//
// Everything after the first call goes to the service's unique name: another service that takes the
// well-known name over has neither the session nor the items. Everything fails by throwing
// SecretServiceFailure.
//
// Thread rule: one thread at a time.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/BusConnection.h"
#include "src/ports/ByteFields.h"
#include "src/ports/SecretServiceErrors.h"

namespace qvr {

// The value of an item where it arrived: a message that is wiped when it goes. Memory of
// SecretBytes' kind would cost more than all the rest of a read does here.
struct ReceivedSecret {
  BusMessage message;
  Bytes bytes;
};

class SecretService {
 public:
  using Paths = std::vector<std::string>;
  using Attributes = std::map<std::string, std::string>;

  static std::unique_ptr<SecretService> connect(const SecretServiceOptions& options);

  std::chrono::milliseconds callTimeout() const { return callTimeout_; }

  // Only this tells: a locked service may answer everything as if it had worked.
  bool isDefaultKeyringLocked();

  // Has the default keyring unlocked when it is not; returns only when it is open.
  void openDefaultKeyring();

  // Asks for these to be unlocked. The caller looks whether they are.
  void unlock(const Paths& objects);

  // The items with an item's attributes.
  struct Found {
    Paths unlocked;
    Paths locked;
  };
  Found search(const KeychainItemName& name);

  ReceivedSecret secretOf(const std::string& item);
  void setSecretOf(const std::string& item, Bytes secret);

  // Makes an item, or replaces the one with its attributes.
  void createItem(const KeychainItemName& name, Bytes secret);
  void deleteItem(const std::string& item);

  // The items of the default keyring and of all others that are open, and their attributes:
  // nothing for one that is gone.
  Paths items();
  std::vector<std::optional<Attributes>> attributesOf(const Paths& items);

 private:
  SecretService(const SecretServiceOptions& options, std::unique_ptr<BusConnection> bus);
  void openSession();
  std::string defaultKeyring();
  Paths openKeyrings();
  void completePrompt(const std::string& prompt);

  BusMessage makeCall(const std::string& path, const char* interface, const char* member) const;
  BusMessage makeGet(const std::string& path, const char* interface, const char* property) const;
  void appendSecret(sd_bus_message* message, Bytes secret) const;
  BusMessage call(BusMessage message, SecretServiceObject called);
  std::vector<BusReply> getAll(const Paths& objects, const char* interface, const char* property);

  const SecretServiceOptions options_;
  const std::chrono::milliseconds callTimeout_;
  const std::unique_ptr<BusConnection> bus_;
  std::string uniqueName_{};
  std::string session_{};
};

}  // namespace qvr
