#include "tests/e2e/desktop/KeePassXCKeyring.h"

#include <filesystem>
#include <fstream>

#include "src/platform/Crypto.h"

namespace e2e {

namespace {

constexpr const char* kPassword = "the keyring's password";
constexpr const char* kConfiguration = R"([General]
ConfigVersion=2
AutoSaveAfterEveryChange=true
AutoSaveOnExit=true
UpdateCheckMessageShown=true

[GUI]
CheckForUpdates=false

[FdoSecrets]
Enabled=true
ShowNotification=false
ConfirmAccessItem=false
ConfirmDeleteItem=false
UnlockBeforeSearch=true
)";

// An identifier of 16 characters, which are its bytes.
std::string identifier(const std::string& bytes) {
  return qvr::base64Encoded({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::string entry(const StoredItem& item, std::size_t number) {
  std::string digits = std::to_string(number);
  digits.insert(0, 16 - digits.size(), '0');
  const auto field = [](const std::string& key, const std::string& value) {
    return "<String><Key>" + key + "</Key><Value>" + value + "</Value></String>";
  };
  return "<Entry><UUID>" + identifier(digits) + "</UUID>" + field("Title", "Item " + digits) +
         field("service", item.name.service) + field("account", item.name.account) +
         field("Password", item.secret) + "</Entry>";
}

// As KeePassXC exports it. The custom data names the group that is offered.
std::string database(const std::vector<StoredItem>& items) {
  std::string entries;
  for (std::size_t number = 0; number < items.size(); ++number)
    entries += entry(items[number], number);
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><KeePassFile><Meta>"
         "<DatabaseName>Passwords</DatabaseName><RecycleBinEnabled>False</RecycleBinEnabled>"
         "<CustomData><Item><Key>FDO_SECRETS_EXPOSED_GROUP</Key>"
         "<Value>{61626364-6566-6768-696a-6b6c6d6e6f70}</Value></Item></CustomData></Meta>"
         "<Root><Group><UUID>" +
         identifier("abcdefghijklmnop") + "</UUID><Name>Root</Name>" + entries +
         "</Group></Root></KeePassFile>";
}

BusObject window() {
  return {"org.keepassxc.KeePassXC.MainWindow", "/keepassxc", "org.keepassxc.KeePassXC.MainWindow"};
}

std::string twice(const std::string& line) {
  return line + "\n" + line + "\n";
}

}  // namespace

KeePassXCKeyring::KeePassXCKeyring(const support::TemporaryFolder& folder) : KeyringDaemon(folder) {
  for (const char* kind : {"config", "cache"})
    std::filesystem::create_directory(folder.file(kind) + std::string("/keepassxc"));
  folder.write("config/keepassxc/keepassxc.ini", kConfiguration);
}

void KeePassXCKeyring::create(const std::vector<StoredItem>& items) {
  const std::string exported = inFolder("database.xml");
  std::ofstream(exported) << database(items);
  constexpr const char* kCheapestKeyMilliseconds = "100";
  run({"keepassxc-cli", "import", "--quiet", "--set-password", "--decryption-time",
       kCheapestKeyMilliseconds, exported, file()},
      twice(kPassword));
  startOpen();
}

void KeePassXCKeyring::startOpen() {
  startOnLeftovers();
  requireLocked(false);
}

void KeePassXCKeyring::startLocked() {
  start({"keepassxc", file()});
  requireLocked(true);
}

void KeePassXCKeyring::startOnLeftovers() {
  start({"keepassxc", "--pw-stdin", file()}, std::string(kPassword) + "\n");
}

void KeePassXCKeyring::lock() {
  client().call(window(), "lockAllDatabases");
  requireLocked(true);
}

void KeePassXCKeyring::unlock() {
  client().call(window(), "openDatabase", "sss", file().c_str(), kPassword, "");
  requireLocked(false);
}

std::string KeePassXCKeyring::file() const {
  return inFolder("data/passwords.kdbx");
}

}  // namespace e2e
