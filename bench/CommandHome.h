// The home of a user of the command: a configuration, and what the library needs to put a token
// where the command will look for it.
#ifndef QVR_BENCH_COMMAND_HOME_H
#define QVR_BENCH_COMMAND_HOME_H

#include <string>
#include <vector>

#include "QVROAuth2Client/platform/KeychainItems.h"

namespace qvr::bench {

inline constexpr const char* kBundleIdentifier = "org.example.mail";
inline constexpr const char* kUser = "user@example.com";

// A folder of its own, removed at the end.
class CommandHome {
 public:
  // `keychainKind` as the configuration names it: "encrypted-file" or "secret-service".
  explicit CommandHome(const std::string& keychainKind);
  ~CommandHome();
  CommandHome(const CommandHome&) = delete;
  CommandHome& operator=(const CommandHome&) = delete;

  // Where the command keeps its encrypted files by default.
  std::string itemFolder() const { return path_ + "/.local/share/qvr-oauth2/items"; }
  std::string keyFolder() const { return path_ + "/.config/qvr-oauth2"; }

  // What a program is started with: nothing of this process but PATH.
  std::vector<std::string> environment() const;

 private:
  std::string path_;
};

// Stores a record of 5 KB with a fresh token for the user at Google in the keychain, with the
// library, in the way the command would have. Once a process. Answers the access token.
std::string storeFreshToken(const Ref<KeychainItems>& keychain);

}  // namespace qvr::bench

#endif
