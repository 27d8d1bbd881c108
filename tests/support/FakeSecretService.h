// A Secret Service on a bus of the test's own, with the habits and the faults that a test gives it.
#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/support/BusService.h"

namespace support {

// What the service holds, and how it behaves.
struct FakeKeyring {
  struct Item {
    std::string label{};
    std::map<std::string, std::string> attributes{};
    std::string secret{};
    std::string contentType{};
    bool isLocked = false;  // by itself, in a keyring that may be open
    std::string collection = "login";
  };
  std::map<int, Item> items{};  // by the number at the end of the path
  int lastNumber = 0;

  bool hasDefault = true;
  bool isLocked = false;                 // the default collection, "login"
  std::map<std::string, bool> others{};  // further collections, and whether they are locked
  bool pretendsWhileLocked = false;      // an empty value, and writes that succeed without effect
  bool losesWrites = false;              // the same, while open
  bool opensWithBytes = false;    // OpenSession's output is an empty array, not an empty text
  bool makesSecondItems = false;  // CreateItem replaces nothing

  bool promptsToCreate = false;
  bool promptsToDelete = false;
  enum class Prompt { kAccepts, kDismisses, kWaits, kAcceptsInVain };
  Prompt prompt = Prompt::kAccepts;  // kWaits: until answerPrompt()

  // Looks at each call before it is served, by its member, or the property for a Get.
  enum class Reaction {
    kServe,
    kSilence,          // never answers
    kDie,              // leaves the bus
    kReplace,          // leaves the bus, but another is there when that is seen
    kReplaceWhenDone,  // the same, after it did what was asked
    kError,            // answers `error`
  };
  std::function<Reaction(FakeKeyring&, const std::string& member)> onCall{};
  std::string error{};

  std::vector<std::string> calls{};  // their members, in their order

  // Reacts so to the first calls of a member.
  void reactTo(const std::string& member, Reaction reaction, int times = 1);
  int countOf(const std::string& member) const;

  // By itself, or with its collection.
  bool isClosed(const Item& item) const;
};

class FakeSecretService {
 public:
  explicit FakeSecretService(const std::string& busAddress);
  ~FakeSecretService() { leave(); }
  FakeSecretService(const FakeSecretService&) = delete;
  FakeSecretService& operator=(const FakeSecretService&) = delete;

  // Reads or changes the keyring.
  template <class Change>
  auto with(Change change) {
    const std::lock_guard lock(mutex_);
    return change(keyring_);
  }

  // Leaves the bus; comes back to it, without the sessions it had.
  void leave();
  void restart();

  // Completes the prompt that waits. On any thread.
  void answerPrompt(bool accepted);

  // Leaves the bus while a prompt waits. On any thread.
  void dieDuringPrompt();

 private:
  class Call;
  void receive(sd_bus_message* message);
  void serve(const Call& call);
  bool serveItself(const Call& call);
  bool serveService(const Call& call);
  void listCollections(const Call& call);
  bool serveCollection(const Call& call);
  bool serveCollection(const Call& call, const std::string& name, bool isLocked);
  void listItems(const Call& call, const std::string& collection);
  bool serveItem(const Call& call);
  void openSession(const Call& call);
  void unlock(const Call& call);
  void searchItems(const Call& call);
  std::string makePrompt(std::function<void()> action);
  void prompt(const Call& call);
  void completePrompt(const Call& call, bool accepted);
  void createItem(const Call& call);
  void getSecret(const Call& call, const FakeKeyring::Item& item);
  void setSecret(const Call& call, FakeKeyring::Item& item);
  void deleteItem(const Call& call, int number);
  void replyPrompting(const Call& call, const char* result, bool prompts,
                      std::function<void()> action);
  std::unique_ptr<BusService> makeService();
  void replaceService(sd_bus* bus);
  void command(const char* member, bool argument);

  const std::string address_;
  std::mutex mutex_;
  FakeKeyring keyring_{};
  std::set<std::string> sessions_{};
  int lastSession_ = 0;
  int lastPrompt_ = 0;
  std::map<std::string, std::function<void()>> prompts_{};  // what acceptance does
  std::string waitingPrompt_{};
  std::vector<std::unique_ptr<BusService>> services_{};  // the last one owns the name
};

}  // namespace support
