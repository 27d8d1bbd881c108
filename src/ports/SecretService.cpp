#include "src/ports/SecretService.h"

#include <algorithm>
#include <iterator>

#include "src/ports/BusLibrary.h"
#include "src/ports/Milliseconds.h"
#include "src/ports/SecretServiceMessages.h"
#include "src/ports/SecretServicePrompt.h"

namespace qvr {

namespace {

using Called = SecretServiceObject;

constexpr const char* kWellKnownName = "org.freedesktop.secrets";
constexpr const char* kServicePath = "/org/freedesktop/secrets";
constexpr const char* kDefaultKeyringPath = "/org/freedesktop/secrets/aliases/default";
constexpr const char* kService = "org.freedesktop.Secret.Service";
constexpr const char* kCollection = "org.freedesktop.Secret.Collection";
constexpr const char* kItem = "org.freedesktop.Secret.Item";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr const char* kNoPrompt = "/";

void appendAttributes(const BusMessage& message, const KeychainItemName& name) {
  appendTo(message, "a{ss}", 2, "service", name.service.c_str(), "account", name.account.c_str());
}

void appendItemProperties(const BusMessage& message, const KeychainItemName& name) {
  const std::string label = "OAuth 2.0 token of " + name.account + " (" + name.service + ")";
  appendTo(message, "a{sv}", 2,                                      //
           "org.freedesktop.Secret.Item.Label", "s", label.c_str(),  //
           "org.freedesktop.Secret.Item.Attributes", "a{ss}", 2,     //
           "service", name.service.c_str(), "account", name.account.c_str());
}

// False for an object that is gone.
bool isThere(const BusReply& reply) {
  try {
    requireAnswer(reply, Called::kItem);
    return true;
  } catch (const SecretServiceFailure& failure) {
    if (failure.status == errSecItemNotFound) return false;
    throw;
  }
}

// Nothing for an item that is gone.
std::optional<SecretService::Attributes> attributesIn(const BusReply& reply) {
  if (!isThere(reply)) return std::nullopt;
  SecretService::Attributes attributes;
  readContainer(reply.message, 'v', "a{ss}", [&] { attributes = readAttributes(reply.message); });
  return attributes;
}

bool flagIn(const BusMessage& answer) {
  int flag = 0;
  readContainer(answer, 'v', "b", [&] { readFrom(answer, "b", &flag); });
  return flag != 0;
}

SecretService::Paths pathsIn(const BusMessage& answer) {
  SecretService::Paths paths;
  readContainer(answer, 'v', "ao", [&] { paths = readPaths(answer); });
  return paths;
}

// Nothing for a keyring that is gone, or was locked meanwhile.
SecretService::Paths itemsIn(const BusReply& reply) {
  try {
    return isThere(reply) ? pathsIn(reply.message) : SecretService::Paths();
  } catch (const SecretServiceFailure& failure) {
    if (failure.status == errSecInteractionNotAllowed) return {};
    throw;
  }
}

}  // namespace

SecretService::SecretService(const SecretServiceOptions& options,
                             std::unique_ptr<BusConnection> bus)
    : options_(options),
      callTimeout_(millisecondsOf(options.callTimeoutSeconds)),
      bus_(std::move(bus)) {}

std::unique_ptr<SecretService> SecretService::connect(const SecretServiceOptions& options) {
  std::string problem;
  auto bus =
      BusConnection::open(options.busAddress, millisecondsOf(options.callTimeoutSeconds), &problem);
  if (!bus) throw SecretServiceFailure{errSecNotAvailable, problem};
  std::unique_ptr<SecretService> service(new SecretService(options, std::move(bus)));
  service->openSession();
  return service;
}

// A plain session: whoever can listen on the user's own bus can ask for the items as well. Nothing
// else is asked before the answer: a widespread daemon then sometimes refuses what comes with it.
void SecretService::openSession() {
  uniqueName_ = kWellKnownName;
  BusMessage message = makeCall(kServicePath, kService, "OpenSession");
  appendTo(message, "sv", "plain", "s", "");
  const BusMessage answer = call(std::move(message), Called::kWellKnownName);
  // The output is unused, and of another type from one service to another.
  requireFit(BusLibrary::shared().sd_bus_message_skip(answer.get(), "v"));
  session_ = readPath(answer);
  const char* const sender = BusLibrary::shared().sd_bus_message_get_sender(answer.get());
  if (sender == nullptr) throw malformedAnswer();
  uniqueName_ = sender;
}

bool SecretService::isDefaultKeyringLocked() {
  return flagIn(call(makeGet(kDefaultKeyringPath, kCollection, "Locked"), Called::kDefaultKeyring));
}

void SecretService::openDefaultKeyring() {
  if (!isDefaultKeyringLocked()) return;
  unlock({defaultKeyring()});
  if (isDefaultKeyringLocked()) throw keyringIsLocked();
}

std::string SecretService::defaultKeyring() {
  BusMessage message = makeCall(kServicePath, kService, "ReadAlias");
  appendTo(message, "s", "default");
  const std::string path = readPath(call(std::move(message), Called::kOther));
  if (path == "/") throw noDefaultKeyring();
  return path;
}

void SecretService::unlock(const Paths& objects) {
  if (!options_.mayPrompt) throw keyringIsLocked();
  BusMessage message = makeCall(kServicePath, kService, "Unlock");
  appendPaths(message, objects);
  const BusMessage answer = call(std::move(message), Called::kOther);
  readPaths(answer);
  completePrompt(readPath(answer));
}

void SecretService::completePrompt(const std::string& prompt) {
  if (prompt == kNoPrompt) return;
  completeSecretServicePrompt(
      *bus_, {uniqueName_, prompt, callTimeout_, millisecondsOf(options_.promptTimeoutSeconds),
              options_.promptIsShown});
}

SecretService::Found SecretService::search(const KeychainItemName& name) {
  BusMessage message = makeCall(kServicePath, kService, "SearchItems");
  appendAttributes(message, name);
  const BusMessage answer = call(std::move(message), Called::kOther);
  Found found;
  found.unlocked = readPaths(answer);
  found.locked = readPaths(answer);
  return found;
}

ReceivedSecret SecretService::secretOf(const std::string& item) {
  BusMessage message = makeCall(item, kItem, "GetSecret");
  appendTo(message, "o", session_.c_str());
  BusMessage answer = call(std::move(message), Called::kItem);
  const BusLibrary& bus = BusLibrary::shared();
  requireFit(bus.sd_bus_message_sensitive(answer.get()));
  const void* bytes = nullptr;
  std::size_t size = 0;
  requireFit(bus.sd_bus_message_enter_container(answer.get(), 'r', "oayays"));
  requireFit(bus.sd_bus_message_skip(answer.get(), "oay"));
  requireFit(bus.sd_bus_message_read_array(answer.get(), 'y', &bytes, &size));
  return {std::move(answer), Bytes(static_cast<const std::uint8_t*>(bytes), size)};
}

void SecretService::setSecretOf(const std::string& item, Bytes secret) {
  BusMessage message = makeCall(item, kItem, "SetSecret");
  appendSecret(message.get(), secret);
  call(std::move(message), Called::kItem);
}

void SecretService::createItem(const KeychainItemName& name, Bytes secret) {
  BusMessage message = makeCall(kDefaultKeyringPath, kCollection, "CreateItem");
  appendItemProperties(message, name);
  appendSecret(message.get(), secret);
  appendTo(message, "b", 1);  // replace
  const BusMessage answer = call(std::move(message), Called::kDefaultKeyring);
  readPath(answer);  // "/" while a prompt has to be completed
  completePrompt(readPath(answer));
}

void SecretService::deleteItem(const std::string& item) {
  completePrompt(readPath(call(makeCall(item, kItem, "Delete"), Called::kItem)));
}

SecretService::Paths SecretService::items() {
  Paths paths =
      pathsIn(call(makeGet(kDefaultKeyringPath, kCollection, "Items"), Called::kDefaultKeyring));
  for (const BusReply& reply : getAll(openKeyrings(), kCollection, "Items"))
    std::ranges::copy(itemsIn(reply), std::back_inserter(paths));
  std::ranges::sort(paths);  // the default keyring is there under its own name, too
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  return paths;
}

// Closed ones are not even looked into: that could make a service ask its user.
SecretService::Paths SecretService::openKeyrings() {
  const Paths all = pathsIn(call(makeGet(kServicePath, kService, "Collections"), Called::kOther));
  const std::vector<BusReply> areLocked = getAll(all, kCollection, "Locked");
  Paths open;
  for (std::size_t index = 0; index < all.size(); ++index) {
    const BusReply& isLocked = areLocked[index];
    if (isThere(isLocked) && !flagIn(isLocked.message)) open.push_back(all[index]);
  }
  return open;
}

std::vector<std::optional<SecretService::Attributes>> SecretService::attributesOf(
    const Paths& items) {
  std::vector<std::optional<Attributes>> result;
  for (const BusReply& reply : getAll(items, kItem, "Attributes"))
    result.push_back(attributesIn(reply));
  return result;
}

// A property of each, asked for at once.
std::vector<BusReply> SecretService::getAll(const Paths& objects, const char* interface,
                                            const char* property) {
  std::vector<BusMessage> calls;
  for (const std::string& object : objects)
    calls.push_back(makeGet(object, interface, property));
  return bus_->callAll(std::move(calls), callTimeout_);
}

BusMessage SecretService::makeCall(const std::string& path, const char* interface,
                                   const char* member) const {
  BusMessage message = bus_->makeCall(uniqueName_, path, interface, member);
  if (!message) throw malformedAnswer();
  return message;
}

BusMessage SecretService::makeGet(const std::string& path, const char* interface,
                                  const char* property) const {
  BusMessage message = makeCall(path, kProperties, "Get");
  appendTo(message, "ss", interface, property);
  return message;
}

// The structure (session, parameters, value, content type), in a message that is wiped when it
// goes.
void SecretService::appendSecret(sd_bus_message* message, Bytes secret) const {
  const BusLibrary& bus = BusLibrary::shared();
  requireFit(bus.sd_bus_message_sensitive(message));
  requireFit(bus.sd_bus_message_open_container(message, 'r', "oayays"));
  requireFit(bus.sd_bus_message_append(message, "o", session_.c_str()));
  requireFit(bus.sd_bus_message_append_array(message, 'y', nullptr, 0));
  requireFit(bus.sd_bus_message_append_array(message, 'y', secret.data(), secret.size()));
  requireFit(bus.sd_bus_message_append(message, "s", "text/plain"));
  requireFit(bus.sd_bus_message_close_container(message));
}

BusMessage SecretService::call(BusMessage message, Called called) {
  BusReply reply = bus_->call(std::move(message), callTimeout_);
  requireAnswer(reply, called);
  return std::move(reply.message);
}

}  // namespace qvr
