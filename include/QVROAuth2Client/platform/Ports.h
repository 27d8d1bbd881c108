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
};

// One sealed file per item. Writes are atomic and durable, and safe between processes.
QVR_EXPORT Ref<KeychainItems> makeEncryptedFileKeychain(EncryptedFileKeychainOptions options);

// Items that live as long as the object.
QVR_EXPORT Ref<KeychainItems> makeInMemoryKeychain();

// Opens URLs with the desktop's default handler: true when there is one, it was started, and it did
// not fail within 200 ms.
QVR_EXPORT Ref<Workspace> makeWorkspace();

// The system's secure generator.
QVR_EXPORT Ref<RandomSource> makeRandomSource();

// Writes `date process[pid:tid] text` to standard error, one line a call.
QVR_EXPORT LogSink makeStandardErrorLog();

// The system's wall clock.
QVR_EXPORT Clock makeSystemClock();

}  // namespace v1
}  // namespace qvr
