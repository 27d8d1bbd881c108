// The keyring daemons of Debian, each alone on a bus and in a home of its own, so that a test may
// do to it what happens to one: it is locked and unlocked, it crashes, it loses its files.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/e2e/desktop/KeyringClient.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

namespace e2e {

class KeyringDaemon {
 public:
  // Uses the folder's "home", "config", "data", "cache", "run" and "tmp".
  explicit KeyringDaemon(const support::TemporaryFolder& folder);
  virtual ~KeyringDaemon() = default;
  KeyringDaemon(const KeyringDaemon&) = delete;
  KeyringDaemon& operator=(const KeyringDaemon&) = delete;

  const std::string& busAddress() const { return bus_.address(); }

  // What makes a program part of the session.
  const std::map<std::string, std::string>& environment() const { return environment_; }

  KeyringClient& client() { return *client_; }

  // Makes the keyring, with these items in it and open.
  virtual void create(const std::vector<StoredItem>& items = {}) = 0;

  // Starts the daemon on the keyring that is there, open or locked, and waits until it is that.
  virtual void startOpen() = 0;
  virtual void startLocked() = 0;

  // Starts it on whatever there is, and waits only until it is on the bus.
  virtual void startOnLeftovers() = 0;

  // By hand, as the user does: no prompt has to do with it.
  virtual void lock() = 0;
  virtual void unlock() = 0;

  // The file that the keyring is kept in.
  virtual std::string file() const = 0;

  // Waits until the file is another than `before`, which contentOf() answered; what is written
  // reaches some keyring's file seconds later.
  bool waitUntilStored(const std::string& before);
  std::string content() const;

  // As a crash does; returns when its names are free again.
  void kill();

  // Keeps it from answering until it is killed.
  void freeze();

 protected:
  // Starts the program, writes its input, and waits until it offers a Secret Service.
  void start(const std::vector<std::string>& arguments, const std::string& input = {});

  // Runs another program in the session to its end.
  void run(const std::vector<std::string>& arguments, const std::string& input);

  void requireLocked(bool locked);
  void createEach(const std::vector<StoredItem>& items);
  std::string inFolder(const std::string& name) const { return folder_.file(name); }

 private:
  const support::TemporaryFolder& folder_;
  support::PrivateBus bus_{};
  std::map<std::string, std::string> environment_;
  std::unique_ptr<support::ChildProcess> process_{};
  std::unique_ptr<KeyringClient> client_;
};

enum class KeyringKind { kGnomeKeyring, kKWallet, kKeePassXC };

std::unique_ptr<KeyringDaemon> makeKeyringDaemon(KeyringKind kind,
                                                 const support::TemporaryFolder& folder);

}  // namespace e2e
