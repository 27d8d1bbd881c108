// KeePassXC without a screen: a database whose one group is offered as a keyring.
#pragma once

#include "tests/e2e/desktop/KeyringDaemon.h"

namespace e2e {

class KeePassXCKeyring final : public KeyringDaemon {
 public:
  explicit KeePassXCKeyring(const support::TemporaryFolder& folder);

  // The items come with the database: KeePassXC 2.7.4 crashes when many are created in a row,
  // whoever does it.
  void create(const std::vector<StoredItem>& items) override;
  void startOpen() override;
  void startLocked() override;
  void startOnLeftovers() override;
  void lock() override;
  void unlock() override;
  std::string file() const override;
};

}  // namespace e2e
