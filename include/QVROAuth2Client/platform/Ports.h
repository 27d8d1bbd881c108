// The ports that come with the library: makers of the operating system's side of each seam. A host
// passes them, or its own, to QVROAuth2Host.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/Executor.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/RandomSource.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "QVROAuth2Client/platform/Workspace.h"

namespace qvr {
inline namespace v1 {

// Takes one line of the library's log, without a newline. Called on any thread.
using LogSink = std::function<void(std::string_view text)>;

struct URLSessionOptions {
  // Seconds without a byte either way, and seconds for a whole request, before NSURLErrorTimedOut.
  double idleTimeoutSeconds = 60;
  double requestTimeoutSeconds = 300;

  // A PEM file of trusted certificates in place of the system's; empty for the system's.
  std::string certificateAuthorityFile{};

  // False keeps to HTTP/1.1, over which a task knows for certain that nothing of its answer has
  // arrived (see URLSessionDataTask::countOfBytesReceived()).
  bool usesHTTP2 = true;
};

// HTTPS by libcurl, which is loaded with the first task that is resumed.
QVR_EXPORT Ref<URLSession> makeURLSession(const URLSessionOptions& options = {});

// Both folders have to be the user's own, closed to others (mode 0700) and no symbolic links;
// otherwise every operation answers errSecAuthFailed. Missing ones are made that way.
struct EncryptedFileKeychainOptions {
  // The folder of the item files. Made with mode 0700 when it is not there.
  std::string directory{};

  // Where the random key lies; made with mode 0600 on first use. A key file that other users can
  // read is refused (errSecAuthFailed). Unused when there is a passphrase.
  std::string keyFile{};

  // When present, the key is derived from it by argon2id, with a salt kept in the folder.
  Text passphrase{};

  // Seconds to wait while another process writes, before errSecNotAvailable.
  double lockTimeoutSeconds = 10;
};

// One sealed file per item. Writes are atomic and durable, and safe between processes.
QVR_EXPORT Ref<KeychainItems> makeEncryptedFileKeychain(EncryptedFileKeychainOptions options);

// How the Secret Service is spoken to. Every call over the bus has a deadline of its own.
struct SecretServiceOptions {
  // The bus, as D-Bus addresses are written; empty for the session's own
  // ($DBUS_SESSION_BUS_ADDRESS, else the socket "bus" in $XDG_RUNTIME_DIR).
  std::string busAddress{};

  // Seconds for each call, and seconds for the user to answer when the keyring asks to be unlocked.
  double callTimeoutSeconds = 10;
  double promptTimeoutSeconds = 60;

  // False: a locked keyring is not asked about, and is errSecInteractionNotAllowed at once.
  bool mayPrompt = true;

  // Called on the calling thread when the user is being asked, before the wait for the answer: to
  // unlock the keyring, or by a service that asks about an item it is to make or to delete.
  std::function<void()> promptIsShown{};
};

// The keyring of the desktop, by the freedesktop Secret Service API: GNOME Keyring, KWallet,
// KeePassXC. An item carries the attributes "service" and "account", by which other clients find it
// too. libsystemd is loaded with the first operation. Without it, without a bus, without a service
// or without a default keyring every operation answers errSecNotAvailable; a locked keyring that
// nobody unlocks is errSecInteractionNotAllowed, or errSecUserCanceled when the user said no.
QVR_EXPORT Ref<KeychainItems> makeSecretServiceKeychain(SecretServiceOptions options = {});

// What there is of a Secret Service, found out without unlocking or changing anything.
struct SecretServiceState {
  enum class Kind {
    kReady,   // there is one, and its default keyring is open
    kLocked,  // there is one, and its default keyring has to be unlocked first
    kAbsent,  // no operation would succeed; `reason` says why
  };
  Kind kind = Kind::kAbsent;
  std::string reason{};  // a sentence; empty when ready
};
QVR_EXPORT SecretServiceState examineSecretService(const SecretServiceOptions& options = {});

// Items that live as long as the object.
QVR_EXPORT Ref<KeychainItems> makeInMemoryKeychain();

// Opens web addresses in the user's default browser: by the desktop's portal in a sandbox, else by
// xdg-open, else by $BROWSER. True when there is one, it was started, and it did not fail within
// 200 ms. Where the desktop names no browser, $BROWSER comes first, and xdg-open, which then looks
// for one in many places, has three seconds to fail.
QVR_EXPORT Ref<Workspace> makeWorkspace();

// The system's secure generator.
QVR_EXPORT Ref<RandomSource> makeRandomSource();

// Writes `date process[pid:tid] text` to standard error, one line a call.
QVR_EXPORT LogSink makeStandardErrorLog();

// The system's wall clock.
QVR_EXPORT Clock makeSystemClock();

}  // namespace v1
}  // namespace qvr
