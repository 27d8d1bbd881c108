#include "tests/support/FakeSecretService.h"

#include <algorithm>
#include <string_view>

#include "tests/support/FakeSecretServiceMessages.h"

namespace support {

namespace {

constexpr const char* kName = "org.freedesktop.secrets";
constexpr const char* kControl = "org.example.FakeSecretService";
constexpr const char* kDefaultPath = "/org/freedesktop/secrets/aliases/default";
constexpr const char* kDefaultName = "login";
const std::string kCollectionPrefix = "/org/freedesktop/secrets/collection/";
const std::string kSessionPrefix = "/org/freedesktop/secrets/session/";
const std::string kPromptPrefix = "/org/freedesktop/secrets/prompt/";

std::string itemPath(int number, const FakeKeyring::Item& item) {
  return kCollectionPrefix + item.collection + "/" + std::to_string(number);
}

void replyPathsProperty(sd_bus_message* answer, const std::vector<std::string>& paths) {
  check(sd_bus_message_open_container(answer, 'v', "ao"));
  appendPaths(answer, paths);
  check(sd_bus_message_close_container(answer));
}

bool matches(const FakeKeyring::Item& item, const std::map<std::string, std::string>& wanted) {
  return std::ranges::includes(item.attributes, wanted);
}

}  // namespace

void FakeKeyring::reactTo(const std::string& member, Reaction reaction, int times) {
  onCall = [=](FakeKeyring&, const std::string& called) mutable {
    return called == member && times-- > 0 ? reaction : Reaction::kServe;
  };
}

int FakeKeyring::countOf(const std::string& member) const {
  return static_cast<int>(std::ranges::count(calls, member));
}

bool FakeKeyring::isClosed(const Item& item) const {
  const auto other = others.find(item.collection);
  return item.isLocked || (other == others.end() ? isLocked : other->second);
}

// A method call, read as far as what is called.
class FakeSecretService::Call {
 public:
  explicit Call(sd_bus_message* message)
      : message_(message),
        path_(sd_bus_message_get_path(message)),
        member_(sd_bus_message_get_member(message)) {
    if (member_ != "Get") return;
    const char* interface = nullptr;
    const char* property = nullptr;
    check(sd_bus_message_read(message, "ss", &interface, &property));
    member_ = property;
  }

  sd_bus_message* message() const { return message_; }
  const std::string& path() const { return path_; }
  const std::string& member() const { return member_; }
  bool is(std::string_view member) const { return member_ == member; }

  // From here on nothing is answered.
  void keepSilent() { isSilent_ = true; }

  template <class... Values>
  void reply(const char* types, Values... values) const {
    if (isSilent_) return;
    check(sd_bus_reply_method_return(message_, types, values...));
  }

  template <class Fill>
  void replyFilled(const Fill& fill) const {
    if (isSilent_) return;
    sd_bus_message* answer = nullptr;
    check(sd_bus_message_new_method_return(message_, &answer));
    fill(answer);
    check(sd_bus_send(nullptr, answer, nullptr));
    sd_bus_message_unref(answer);
  }

  void fail(const std::string& error) const {
    check(sd_bus_reply_method_errorf(message_, error.c_str(), "%s", "as the test wants it"));
  }

 private:
  sd_bus_message* const message_;
  const std::string path_;
  std::string member_;
  bool isSilent_ = false;
};

FakeSecretService::FakeSecretService(const std::string& busAddress) : address_(busAddress) {
  restart();
}

void FakeSecretService::leave() {
  std::vector<std::unique_ptr<BusService>> leaving;
  const std::lock_guard lock(mutex_);
  sessions_.clear();
  leaving.swap(services_);
}

void FakeSecretService::restart() {
  leave();
  auto service = makeService();
  const std::lock_guard lock(mutex_);
  services_.push_back(std::move(service));
}

std::unique_ptr<BusService> FakeSecretService::makeService() {
  const auto handler = [this](sd_bus_message* message) { receive(message); };
  return std::make_unique<BusService>(address_, kName, handler);
}

// On the thread of the service that goes: the other has the name before anybody sees this one gone.
void FakeSecretService::replaceService(sd_bus* bus) {
  sessions_.clear();
  check(sd_bus_release_name(bus, kName));
  services_.push_back(makeService());
  sd_bus_close(bus);
}

void FakeSecretService::receive(sd_bus_message* message) {
  using Reaction = FakeKeyring::Reaction;
  const std::lock_guard lock(mutex_);
  Call call(message);
  sd_bus* const bus = sd_bus_message_get_bus(message);
  if (serveItself(call)) return;
  keyring_.calls.push_back(call.member());
  switch (keyring_.onCall ? keyring_.onCall(keyring_, call.member()) : Reaction::kServe) {
    case Reaction::kServe:
      return serve(call);
    case Reaction::kSilence:
      return;
    case Reaction::kDie:
      return sd_bus_close(bus);
    case Reaction::kReplace:
      return replaceService(bus);
    case Reaction::kReplaceWhenDone:
      call.keepSilent();
      serve(call);
      return replaceService(bus);
    case Reaction::kError:
      return call.fail(keyring_.error);
  }
}

void FakeSecretService::serve(const Call& call) {
  if (serveService(call) || serveCollection(call) || serveItem(call)) return;
  call.fail("org.freedesktop.DBus.Error.UnknownObject");
}

// What the test tells the service; by the bus, since its thread alone may use the connection.
bool FakeSecretService::serveItself(const Call& call) {
  if (call.is("Die")) {
    sd_bus_close(sd_bus_message_get_bus(call.message()));
    return true;
  }
  if (!call.is("AnswerPrompt")) return false;
  int accepted = 0;
  check(sd_bus_message_read(call.message(), "b", &accepted));
  completePrompt(call, accepted != 0);
  call.reply("");
  return true;
}

void FakeSecretService::answerPrompt(bool accepted) {
  command("AnswerPrompt", accepted);
}

void FakeSecretService::dieDuringPrompt() {
  command("Die", false);
}

void FakeSecretService::command(const char* member, bool argument) {
  sd_bus* bus = nullptr;
  check(sd_bus_new(&bus));
  check(sd_bus_set_address(bus, address_.c_str()));
  check(sd_bus_set_bus_client(bus, 1));
  check(sd_bus_start(bus));
  sd_bus_call_method(bus, kName, "/", kControl, member, nullptr, nullptr, "b",
                     static_cast<int>(argument));
  sd_bus_flush_close_unref(bus);
}

bool FakeSecretService::serveService(const Call& call) {
  if (call.is("OpenSession")) {
    openSession(call);
  } else if (call.is("ReadAlias")) {
    call.reply("o", keyring_.hasDefault ? (kCollectionPrefix + kDefaultName).c_str() : "/");
  } else if (call.is("Collections")) {
    listCollections(call);
  } else if (call.is("Unlock")) {
    unlock(call);
  } else if (call.is("SearchItems")) {
    searchItems(call);
  } else if (call.is("Prompt")) {
    prompt(call);
  } else if (call.is("Dismiss")) {
    call.reply("");
  } else {
    return false;
  }
  return true;
}

void FakeSecretService::openSession(const Call& call) {
  const std::string session = kSessionPrefix + std::to_string(++lastSession_);
  sessions_.insert(session);
  if (keyring_.opensWithBytes) return call.reply("vo", "ay", 0, session.c_str());
  call.reply("vo", "s", "", session.c_str());
}

std::string FakeSecretService::makePrompt(std::function<void()> action) {
  std::string path = kPromptPrefix + std::to_string(++lastPrompt_);
  prompts_[path] = std::move(action);
  return path;
}

// Always by a prompt, and all there is.
void FakeSecretService::unlock(const Call& call) {
  const std::string prompt = makePrompt([this] {
    keyring_.isLocked = false;
    for (auto& [number, item] : keyring_.items)
      item.isLocked = false;
  });
  call.replyFilled([&prompt](sd_bus_message* answer) {
    appendPaths(answer, {});
    check(sd_bus_message_append(answer, "o", prompt.c_str()));
  });
}

void FakeSecretService::searchItems(const Call& call) {
  const auto wanted = readAttributes(call.message());
  std::vector<std::string> unlocked;
  std::vector<std::string> locked;
  for (const auto& [number, item] : keyring_.items) {
    if (!matches(item, wanted)) continue;
    (keyring_.isClosed(item) ? locked : unlocked).push_back(itemPath(number, item));
  }
  call.replyFilled([&](sd_bus_message* answer) {
    appendPaths(answer, unlocked);
    appendPaths(answer, locked);
  });
}

void FakeSecretService::prompt(const Call& call) {
  using Prompt = FakeKeyring::Prompt;
  waitingPrompt_ = call.path();
  call.reply("");
  if (keyring_.prompt == Prompt::kAcceptsInVain) prompts_[waitingPrompt_] = [] {};
  if (keyring_.prompt == Prompt::kWaits) return;
  completePrompt(call, keyring_.prompt != Prompt::kDismisses);
}

void FakeSecretService::completePrompt(const Call& call, bool accepted) {
  const auto action = prompts_.extract(waitingPrompt_);
  if (action.empty()) return;
  if (accepted) action.mapped()();
  sd_bus* const bus = sd_bus_message_get_bus(call.message());
  check(sd_bus_emit_signal(bus, waitingPrompt_.c_str(), "org.freedesktop.Secret.Prompt",
                           "Completed", "bv", accepted ? 0 : 1, "s", ""));
}

void FakeSecretService::listCollections(const Call& call) {
  std::vector<std::string> paths;
  if (keyring_.hasDefault) paths.push_back(kCollectionPrefix + kDefaultName);
  for (const auto& [name, isLocked] : keyring_.others)
    paths.push_back(kCollectionPrefix + name);
  call.replyFilled([&](sd_bus_message* answer) { replyPathsProperty(answer, paths); });
}

// The default one answers to its alias and to its name.
bool FakeSecretService::serveCollection(const Call& call) {
  if (call.path() == kDefaultPath || call.path() == kCollectionPrefix + kDefaultName) {
    return keyring_.hasDefault && serveCollection(call, kDefaultName, keyring_.isLocked);
  }
  for (const auto& [name, isLocked] : keyring_.others) {
    if (call.path() == kCollectionPrefix + name) return serveCollection(call, name, isLocked);
  }
  return false;
}

bool FakeSecretService::serveCollection(const Call& call, const std::string& name, bool isLocked) {
  if (call.is("Locked")) {
    call.reply("v", "b", isLocked ? 1 : 0);
  } else if (call.is("Items")) {
    listItems(call, name);
  } else if (call.is("CreateItem")) {
    createItem(call);
  } else {
    return false;
  }
  return true;
}

void FakeSecretService::listItems(const Call& call, const std::string& collection) {
  std::vector<std::string> paths;
  for (const auto& [number, item] : keyring_.items) {
    if (item.collection == collection) paths.push_back(itemPath(number, item));
  }
  call.replyFilled([&](sd_bus_message* answer) { replyPathsProperty(answer, paths); });
}

bool FakeSecretService::serveItem(const Call& call) {
  const auto found = std::ranges::find_if(keyring_.items, [&call](const auto& entry) {
    return call.path() == itemPath(entry.first, entry.second);
  });
  if (found == keyring_.items.end()) return false;
  if (call.is("Attributes")) {
    call.replyFilled([&](sd_bus_message* answer) {
      check(sd_bus_message_open_container(answer, 'v', "a{ss}"));
      appendAttributes(answer, found->second.attributes);
      check(sd_bus_message_close_container(answer));
    });
  } else if (call.is("GetSecret")) {
    getSecret(call, found->second);
  } else if (call.is("SetSecret")) {
    setSecret(call, found->second);
  } else if (call.is("Delete")) {
    deleteItem(call, found->first);
  } else {
    return false;
  }
  return true;
}

void FakeSecretService::deleteItem(const Call& call, int number) {
  const bool isVain = keyring_.losesWrites || keyring_.isLocked;
  replyPrompting(call, nullptr, keyring_.promptsToDelete, [this, isVain, number] {
    if (!isVain) keyring_.items.erase(number);
  });
}

// Does the action, or makes a prompt that does; answers `result`, unless null, and the prompt.
void FakeSecretService::replyPrompting(const Call& call, const char* result, bool prompts,
                                       std::function<void()> action) {
  std::string prompt = "/";
  if (prompts) {
    prompt = makePrompt(std::move(action));
  } else {
    action();
  }
  if (result == nullptr) return call.reply("o", prompt.c_str());
  call.reply("oo", prompts ? "/" : result, prompt.c_str());
}

void FakeSecretService::createItem(const Call& call) {
  FakeKeyring::Item item = readProperties(call.message());
  if (!readSecret(call.message(), sessions_, &item)) {
    return call.fail("org.freedesktop.Secret.Error.NoSession");
  }
  int replaces = 0;
  check(sd_bus_message_read(call.message(), "b", &replaces));
  const bool isVain = keyring_.losesWrites || keyring_.isLocked;
  const int number = ++keyring_.lastNumber;
  const auto store = [=, this] {
    if (isVain) return;
    std::erase_if(keyring_.items, [&](const auto& entry) {
      return replaces != 0 && !keyring_.makesSecondItems &&
             entry.second.attributes == item.attributes;
    });
    keyring_.items[number] = item;
  };
  replyPrompting(call, itemPath(number, item).c_str(), keyring_.promptsToCreate, store);
}

void FakeSecretService::getSecret(const Call& call, const FakeKeyring::Item& item) {
  const char* session = nullptr;
  check(sd_bus_message_read(call.message(), "o", &session));
  if (!sessions_.contains(session)) return call.fail("org.freedesktop.Secret.Error.NoSession");
  if (keyring_.isLocked && !keyring_.pretendsWhileLocked) {
    return call.fail("org.freedesktop.Secret.Error.IsLocked");
  }
  const std::string secret = keyring_.isLocked ? "" : item.secret;
  call.replyFilled([&](sd_bus_message* answer) {
    check(sd_bus_message_open_container(answer, 'r', "oayays"));
    check(sd_bus_message_append(answer, "oay", session, 0));
    check(sd_bus_message_append_array(answer, 'y', secret.data(), secret.size()));
    check(sd_bus_message_append(answer, "s", "application/x-whatever"));
    check(sd_bus_message_close_container(answer));
  });
}

void FakeSecretService::setSecret(const Call& call, FakeKeyring::Item& item) {
  FakeKeyring::Item changed = item;
  if (!readSecret(call.message(), sessions_, &changed)) {
    return call.fail("org.freedesktop.Secret.Error.NoSession");
  }
  if (keyring_.isLocked && !keyring_.pretendsWhileLocked) {
    return call.fail("org.freedesktop.Secret.Error.IsLocked");
  }
  if (!keyring_.isLocked && !keyring_.losesWrites) item = changed;
  call.reply("");
}

}  // namespace support
