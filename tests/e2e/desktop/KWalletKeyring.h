// KWallet (kwalletd5), opened as its login module does it: with a key in place of a password, and
// without a dialog.
#pragma once

#include "tests/e2e/desktop/KeyringDaemon.h"

namespace e2e {

class KWalletKeyring final : public KeyringDaemon {
 public:
  explicit KWalletKeyring(const support::TemporaryFolder& folder);

  void create(const std::vector<StoredItem>& items) override;
  void startOpen() override;
  void startLocked() override;
  void startOnLeftovers() override;
  void lock() override;
  void unlock() override;
  std::string file() const override;

 private:
  // Opens the wallet, which stays locked for the clients of the Secret Service until one of them
  // asks for it to be unlocked; the prompt for that completes without a dialog.
  void logIn();
  void openToOthers();
};

}  // namespace e2e
