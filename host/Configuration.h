// The command's configuration: config.toml in the user's XDG configuration folder.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/Failure.h"

namespace host {

// The keychains that there are, as keychain.kind names them.
inline constexpr std::string_view kSecretService = "secret-service";
inline constexpr std::string_view kEncryptedFile = "encrypted-file";

struct Configuration {
  std::string path;  // of the file it was read from

  std::string bundleIdentifier;

  struct Google {
    std::string clientIdentifier;
    std::string clientSecret;
    std::string customURIScheme;
  } google;

  struct Microsoft {
    std::string applicationIdentifier;
  } microsoft;

  struct Endpoints {
    std::string googleAuthorizationHost = "accounts.google.com";
    std::string googleTokenHost = "oauth2.googleapis.com";
    std::string microsoftLoginHost = "login.microsoftonline.com";
    std::string certificateAuthorityFile;  // empty: the system's
  } endpoints;

  struct Keychain {
    std::string kind;  // one of the two above; empty: not chosen yet (KeychainChoice.h)

    // Of the encrypted files.
    std::string directory;                // default: $XDG_DATA_HOME/qvr-oauth2/items
    std::string keyFile;                  // default: $XDG_CONFIG_HOME/qvr-oauth2/key
    std::string protection = "key-file";  // or "passphrase"
    std::string passphraseCommand;        // prints the passphrase; asked on the terminal when empty
    int passphraseDescriptor = -1;        // goes before the command; of the arguments, not the file
  } keychain;

  // What is odd about the file and no reason to stop, a sentence each.
  std::vector<std::string> warnings;
};

// Where the configuration lies when the user names no file; absent without a home folder.
std::optional<std::string> defaultConfigurationPath();

// The text of the file; *mode gets its mode.
std::variant<std::string, Failure> readConfigurationText(const std::string& path, mode_t* mode);

// Reads the file. Relative paths in it are resolved against its folder, and everything that is
// there is checked, so that the library never raises on it; what is not there keeps its default.
std::variant<Configuration, Failure> readConfiguration(const std::string& path);

// The same from text, as if it stood in the file `path`.
std::variant<Configuration, Failure> parseConfiguration(std::string_view text,
                                                        const std::string& path);

// Why the provider cannot be asked for anything: its registration is not in the configuration.
std::optional<Failure> registrationProblem(const Configuration& configuration,
                                           std::string_view provider);

// What is wrong with a value, as the end of a sentence that begins with its name ("must be ...");
// empty when it is fine. The empty value is not: callers decide whether it may be left out.
std::string problemWithBundleIdentifier(std::string_view text);
std::string problemWithURIScheme(std::string_view text);
std::string problemWithCredential(std::string_view text);
std::string problemWithApplicationIdentifier(std::string_view text);
std::string problemWithHost(std::string_view text);

// The redirect URI to register at each provider.
std::string googleRedirectURI(std::string_view customURIScheme);
std::string microsoftRedirectURI(std::string_view bundleIdentifier);

}  // namespace host
