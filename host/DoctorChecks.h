// What `doctor` checks on this computer; DoctorEndpoints.h has the servers. Each check gets what it
// looks at, and changes nothing that it does not put back.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "QVROAuth2Client/platform/Desktop.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/Configuration.h"
#include "host/DesktopFolders.h"
#include "host/DoctorCheck.h"
#include "host/KeychainChoice.h"
#include "host/Keychains.h"

namespace host {

// Whether the configuration could be read: what readConfiguration() answered for the path.
Checks checkConfiguration(const std::variant<Configuration, Failure>& result,
                          const std::string& path);

// At which providers there is a registration: at least one is needed.
Check checkRegistrations(const Configuration& configuration);

// What there is to say of a thing that is one of the registrations', when there is none.
Check needsRegistration(std::string name);

// What a desktop session offers.
struct DesktopSession {
  bool hasDisplay = false;
  bool isSandboxed = false;               // the desktop's portal opens addresses then
  std::string browser{};                  // the program of $BROWSER, if it can be run
  bool hasOpener = false;                 // xdg-open can be run
  std::optional<DesktopFolders> folders;  // absent without a home folder
};
DesktopSession currentDesktopSession();

// Whether the desktop hands each scheme of the configuration to this command. Without a display
// nothing is handed over, and redirects are pasted.
Checks checkRedirectHandlers(const Configuration& configuration, const DesktopSession& desktop);

// What would open the address to sign in at.
Check checkBrowser(const DesktopSession& desktop);

// Where keychains come from. None may ask the user to unlock the keyring: what is locked is said to
// be so.
struct KeychainSources {
  SecretServiceExaminer examineSecretService;
  std::function<qvr::Ref<qvr::KeychainItems>()> makeSecretService;
  std::function<KeychainOrFailure(const Configuration::Keychain&)> makeFiles;
};

// Whether the configured keychain keeps an item; when none has been chosen yet, the one that would
// be chosen.
Check checkKeychain(const Configuration& configuration, const KeychainSources& sources);

// Whether a sign-in can wait for its redirect in the folder.
Check checkRuntimeFolder(const std::string& folder);

// Whether a bus is there over which the desktop hands redirects over.
Check checkSessionBus(const qvr::URLReceiverOptions& options);

// Why the file keychain refuses a folder that is there: it has to be the user's own, and closed to
// others. Absent when it does not, and for a missing folder.
std::optional<Check> checkPrivateFolder(const std::string& name, const std::string& path);

// Whether what has to be the user's own is, and is closed to others.
Checks checkFileModes(const Configuration& configuration);

}  // namespace host
