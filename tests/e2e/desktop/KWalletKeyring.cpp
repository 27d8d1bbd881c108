#include "tests/e2e/desktop/KWalletKeyring.h"

#include <stdexcept>

namespace e2e {

namespace {

constexpr const char* kWallet = "kdewallet";
constexpr std::size_t kKeySize = 56;
constexpr const char* kConfiguration = R"([Wallet]
Enabled=true
First Use=false
Default Wallet=kdewallet
Use One Wallet=true
Prompt on Open=false
Close When Idle=false
Close on Screensaver=false
Leave Open=true
Launch Manager=false

[org.freedesktop.secrets]
apiEnabled=true
)";

BusObject daemon() {
  return {"org.kde.kwalletd5", "/modules/kwalletd5", "org.kde.KWallet"};
}

bool isOpen(KeyringClient& client) {
  int open = 0;
  const BusMessage answer = client.call(daemon(), "isOpen", "s", kWallet);
  return sd_bus_message_read_basic(answer.get(), 'b', &open) > 0 && open != 0;
}

}  // namespace

KWalletKeyring::KWalletKeyring(const support::TemporaryFolder& folder) : KeyringDaemon(folder) {
  folder.write("config/kwalletrc", kConfiguration);
}

// A new wallet is offered as a keyring from the daemon's next start on.
void KWalletKeyring::create(const std::vector<StoredItem>& items) {
  startOnLeftovers();
  kill();
  startOpen();
  createEach(items);
}

void KWalletKeyring::startOpen() {
  startOnLeftovers();
  openToOthers();
}

void KWalletKeyring::startLocked() {
  start({"kwalletd5"});
  requireLocked(true);
}

void KWalletKeyring::startOnLeftovers() {
  start({"kwalletd5"});
  logIn();
}

void KWalletKeyring::lock() {
  constexpr int kAlsoWhileInUse = 1;
  client().call(daemon(), "close", "sb", kWallet, kAlsoWhileInUse);
  requireLocked(true);
}

void KWalletKeyring::unlock() {
  logIn();
  openToOthers();
}

std::string KWalletKeyring::file() const {
  return inFolder("data/kwalletd/kdewallet.kwl");
}

void KWalletKeyring::logIn() {
  const std::string key(kKeySize, 'k');
  const BusMessage message = client().makeCall(daemon(), "pamOpen");
  sd_bus_message_append(message.get(), "s", kWallet);
  sd_bus_message_append_array(message.get(), 'y', key.data(), key.size());
  sd_bus_message_append(message.get(), "i", 0);
  client().send(message);
  if (!client().waitUntil([this] { return isOpen(client()); })) {
    throw std::runtime_error("kwalletd5 does not open its wallet");
  }
}

void KWalletKeyring::openToOthers() {
  client().unlock(client().defaultKeyring());
  requireLocked(false);
}

}  // namespace e2e
