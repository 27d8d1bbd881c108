#include "tests/e2e/desktop/GnomeKeyring.h"

namespace e2e {

namespace {

constexpr const char* kPassword = "the keyring's password";

}  // namespace

void GnomeKeyring::create(const std::vector<StoredItem>& items) {
  startOpen();
  createEach(items);
}

void GnomeKeyring::startOpen() {
  startOnLeftovers();
  requireLocked(false);
}

void GnomeKeyring::startLocked() {
  start({"gnome-keyring-daemon", "--foreground", "--components=secrets"});
  requireLocked(true);
}

void GnomeKeyring::startOnLeftovers() {
  start({"gnome-keyring-daemon", "--foreground", "--unlock", "--components=secrets"}, kPassword);
}

void GnomeKeyring::lock() {
  client().lock(client().defaultKeyring());
  requireLocked(true);
}

void GnomeKeyring::unlock() {
  client().unlockWithPassword(client().defaultKeyring(), kPassword);
  requireLocked(false);
}

std::string GnomeKeyring::file() const {
  return inFolder("data/keyrings/login.keyring");
}

}  // namespace e2e
