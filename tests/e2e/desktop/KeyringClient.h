// Another program on the bus: it sees the keyring as the tests' own eyes, over a connection and a
// session of its own, and shares nothing with the library.
//
// Whatever the service answers with an error is thrown as std::runtime_error, its name first.
#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/KeychainItems.h"

namespace e2e {

struct BusUnref {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, BusUnref>;

struct BusObject {
  std::string service;
  std::string path;
  std::string interface;
};

// An item as any program may store it.
struct StoredItem {
  qvr::KeychainItemName name;
  std::string secret;
};

class KeyringClient {
 public:
  explicit KeyringClient(const std::string& busAddress);

  // Looks whether the condition holds whenever something happens on the bus, and 50 times a second.
  // False when the deadline passes.
  bool waitUntil(const std::function<bool()>& condition, double seconds = 30);

  bool isOnBus(const std::string& name);
  bool hasService() { return isOnBus("org.freedesktop.secrets"); }

  // Of the default keyring; nothing when there is none.
  std::optional<bool> isLocked();
  std::string defaultKeyring();

  // The items that carry these attributes, perhaps among others.
  std::vector<std::string> find(const qvr::KeychainItemName& name);
  std::string secretOf(const std::string& item);
  std::string labelOf(const std::string& item);

  // Makes an item in the open default keyring; answers its path.
  std::string create(const StoredItem& item, const std::string& label);

  void lock(const std::string& keyring);

  // Has the service unlock it by a prompt that needs no answer.
  void unlock(const std::string& keyring);

  // gnome-keyring's way to unlock without a prompt.
  void unlockWithPassword(const std::string& keyring, const std::string& password);

  // The message of a call, to be filled in, and its answer.
  BusMessage makeCall(const BusObject& object, const std::string& member);
  BusMessage send(const BusMessage& call);

  // Calls with arguments of basic types.
  template <class... Arguments>
  BusMessage call(const BusObject& object, const std::string& member, const char* types = "",
                  Arguments... arguments) {
    const BusMessage message = makeCall(object, member);
    if (*types != '\0') sd_bus_message_append(message.get(), types, arguments...);
    return send(message);
  }

 private:
  const std::string& session();
  void startPrompt(const std::string& prompt);
  void appendSecret(const BusMessage& message, const std::string& secret);

  std::unique_ptr<sd_bus, BusUnref> bus_{};
  std::string session_{};
};

}  // namespace e2e
