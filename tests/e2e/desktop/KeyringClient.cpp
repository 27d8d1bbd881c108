#include "tests/e2e/desktop/KeyringClient.h"

#include <chrono>
#include <stdexcept>
#include <system_error>

namespace e2e {

namespace {

constexpr const char* kDefaultKeyring = "/org/freedesktop/secrets/aliases/default";
constexpr std::uint64_t kCallMicroseconds = 20'000'000;

BusObject service(const std::string& interface = "org.freedesktop.Secret.Service") {
  return {"org.freedesktop.secrets", "/org/freedesktop/secrets", interface};
}

BusObject object(const std::string& path, const std::string& kind) {
  return {"org.freedesktop.secrets", path, "org.freedesktop.Secret." + kind};
}

BusObject propertiesOf(const std::string& path) {
  return {"org.freedesktop.secrets", path, "org.freedesktop.DBus.Properties"};
}

void require(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

template <class T>
T readBasic(const BusMessage& message, char type) {
  T value{};
  require(sd_bus_message_read_basic(message.get(), type, &value), "reading an answer");
  return value;
}

std::vector<std::string> readPaths(const BusMessage& message) {
  std::vector<std::string> paths;
  require(sd_bus_message_enter_container(message.get(), 'a', "o"), "reading paths");
  const char* path = nullptr;
  while (sd_bus_message_read(message.get(), "o", &path) > 0)
    paths.emplace_back(path);
  require(sd_bus_message_exit_container(message.get()), "reading paths");
  return paths;
}

}  // namespace

KeyringClient::KeyringClient(const std::string& busAddress) {
  sd_bus* bus = nullptr;
  require(sd_bus_new(&bus), "sd_bus_new");
  bus_.reset(bus);
  require(sd_bus_set_address(bus, busAddress.c_str()), "sd_bus_set_address");
  require(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
  require(sd_bus_start(bus), "connecting to the bus");
}

bool KeyringClient::waitUntil(const std::function<bool()>& condition, double seconds) {
  constexpr std::uint64_t kLookAgainMicroseconds = 20'000;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (sd_bus_process(bus_.get(), nullptr) == 0) sd_bus_wait(bus_.get(), kLookAgainMicroseconds);
  }
  return true;
}

bool KeyringClient::isOnBus(const std::string& name) {
  const BusObject bus{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
  return readBasic<int>(call(bus, "NameHasOwner", "s", name.c_str()), 'b') != 0;
}

std::optional<bool> KeyringClient::isLocked() {
  try {
    const BusMessage answer = call(propertiesOf(kDefaultKeyring), "Get", "ss",
                                   "org.freedesktop.Secret.Collection", "Locked");
    require(sd_bus_message_enter_container(answer.get(), 'v', "b"), "reading Locked");
    return readBasic<int>(answer, 'b') != 0;
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

std::string KeyringClient::defaultKeyring() {
  return readBasic<const char*>(call(service(), "ReadAlias", "s", "default"), 'o');
}

std::vector<std::string> KeyringClient::find(const qvr::KeychainItemName& name) {
  const BusMessage answer = call(service(), "SearchItems", "a{ss}", 2, "service",
                                 name.service.c_str(), "account", name.account.c_str());
  std::vector<std::string> items = readPaths(answer);
  for (std::string& locked : readPaths(answer))
    items.push_back(std::move(locked));
  return items;
}

std::string KeyringClient::secretOf(const std::string& item) {
  const BusMessage answer = call(object(item, "Item"), "GetSecret", "o", session().c_str());
  require(sd_bus_message_enter_container(answer.get(), 'r', "oayays"), "reading a secret");
  require(sd_bus_message_skip(answer.get(), "oay"), "reading a secret");
  const void* bytes = nullptr;
  std::size_t size = 0;
  require(sd_bus_message_read_array(answer.get(), 'y', &bytes, &size), "reading a secret");
  return {static_cast<const char*>(bytes), size};
}

std::string KeyringClient::labelOf(const std::string& item) {
  const BusMessage answer =
      call(propertiesOf(item), "Get", "ss", "org.freedesktop.Secret.Item", "Label");
  require(sd_bus_message_enter_container(answer.get(), 'v', "s"), "reading a label");
  return readBasic<const char*>(answer, 's');
}

std::string KeyringClient::create(const StoredItem& item, const std::string& label) {
  const BusMessage message = makeCall(object(defaultKeyring(), "Collection"), "CreateItem");
  sd_bus_message_append(message.get(), "a{sv}", 2,                                //
                        "org.freedesktop.Secret.Item.Label", "s", label.c_str(),  //
                        "org.freedesktop.Secret.Item.Attributes", "a{ss}", 2,     //
                        "service", item.name.service.c_str(),                     //
                        "account", item.name.account.c_str());
  appendSecret(message, item.secret);
  sd_bus_message_append(message.get(), "b", 1);
  const BusMessage answer = send(message);
  std::string path = readBasic<const char*>(answer, 'o');
  const std::string prompt = readBasic<const char*>(answer, 'o');
  if (prompt == "/") return path;
  startPrompt(prompt);
  if (!waitUntil([&] { return !find(item.name).empty(); })) {
    throw std::runtime_error("the prompt for a new item does not complete");
  }
  return find(item.name).front();
}

void KeyringClient::lock(const std::string& keyring) {
  call(service(), "Lock", "ao", 1, keyring.c_str());
}

void KeyringClient::unlock(const std::string& keyring) {
  const BusMessage answer = call(service(), "Unlock", "ao", 1, keyring.c_str());
  readPaths(answer);
  startPrompt(readBasic<const char*>(answer, 'o'));
}

void KeyringClient::unlockWithPassword(const std::string& keyring, const std::string& password) {
  const BusMessage message =
      makeCall(service("org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface"),
               "UnlockWithMasterPassword");
  sd_bus_message_append(message.get(), "o", keyring.c_str());
  appendSecret(message, password);
  send(message);
}

BusMessage KeyringClient::makeCall(const BusObject& called, const std::string& member) {
  sd_bus_message* message = nullptr;
  require(
      sd_bus_message_new_method_call(bus_.get(), &message, called.service.c_str(),
                                     called.path.c_str(), called.interface.c_str(), member.c_str()),
      member.c_str());
  return BusMessage(message);
}

BusMessage KeyringClient::send(const BusMessage& message) {
  sd_bus_error error{};
  sd_bus_message* answer = nullptr;
  if (sd_bus_call(bus_.get(), message.get(), kCallMicroseconds, &error, &answer) < 0) {
    const std::string text = std::string(error.name) + ": " + error.message;
    sd_bus_error_free(&error);
    throw std::runtime_error(text);
  }
  return BusMessage(answer);
}

const std::string& KeyringClient::session() {
  if (!session_.empty()) return session_;
  const BusMessage answer = call(service(), "OpenSession", "sv", "plain", "s", "");
  require(sd_bus_message_skip(answer.get(), "v"), "opening a session");
  return session_ = readBasic<const char*>(answer, 'o');
}

void KeyringClient::startPrompt(const std::string& prompt) {
  if (prompt != "/") call(object(prompt, "Prompt"), "Prompt", "s", "");
}

void KeyringClient::appendSecret(const BusMessage& message, const std::string& secret) {
  const std::string& opened = session();
  sd_bus_message_open_container(message.get(), 'r', "oayays");
  sd_bus_message_append(message.get(), "o", opened.c_str());
  sd_bus_message_append_array(message.get(), 'y', nullptr, 0);
  sd_bus_message_append_array(message.get(), 'y', secret.data(), secret.size());
  sd_bus_message_append(message.get(), "s", "text/plain");
  sd_bus_message_close_container(message.get());
}

}  // namespace e2e
