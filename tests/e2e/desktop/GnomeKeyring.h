// gnome-keyring: the password on its standard input opens the keyring "login", which it makes when
// it is not there; without one it comes up locked.
#pragma once

#include "tests/e2e/desktop/KeyringDaemon.h"

namespace e2e {

class GnomeKeyring final : public KeyringDaemon {
 public:
  using KeyringDaemon::KeyringDaemon;

  void create(const std::vector<StoredItem>& items) override;
  void startOpen() override;
  void startLocked() override;
  void startOnLeftovers() override;
  void lock() override;
  void unlock() override;
  std::string file() const override;
};

}  // namespace e2e
