#include "host/Configuration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/Console.h"
#include "host/Messages.h"
#include "host/Paths.h"

namespace host {
namespace {

constexpr off_t kLargestFile = 1'048'576;

using Problem = std::string (*)(std::string_view text);

// One key of the file. An empty value of an optional one means that it was left out.
struct Key {
  std::string_view section;  // empty: the top level
  std::string_view name;
  bool isOptional;
  std::string& (*field)(Configuration&);
  Problem problem;
};

std::string problemWithPath(std::string_view text) {
  if (text.find('\0') == std::string_view::npos && !text.starts_with("~")) return "";
  return "must be a path; \"~\" is not expanded: write the whole path";
}

std::string problemWithKind(std::string_view text) {
  return text == kSecretService || text == kEncryptedFile
             ? ""
             : "must be \"secret-service\" or \"encrypted-file\"";
}

std::string problemWithProtection(std::string_view text) {
  return text == "key-file" || text == "passphrase" ? "" : "must be \"key-file\" or \"passphrase\"";
}

std::string problemWithCommand(std::string_view text) {
  return text.find('\0') == std::string_view::npos ? "" : "must be a command line of the shell";
}

// The member of a configuration that a path of member pointers leads to.
template <auto... members>
std::string& field(Configuration& configuration) {
  return (configuration.*....*members);
}

using Google = Configuration::Google;
using Microsoft = Configuration::Microsoft;
using Endpoints = Configuration::Endpoints;
using Keychain = Configuration::Keychain;

constexpr Key kKeys[] = {
    {"", "bundle_identifier", true, field<&Configuration::bundleIdentifier>,
     problemWithBundleIdentifier},
    {"google", "client_identifier", true, field<&Configuration::google, &Google::clientIdentifier>,
     problemWithCredential},
    {"google", "client_secret", true, field<&Configuration::google, &Google::clientSecret>,
     problemWithCredential},
    {"google", "custom_uri_scheme", true, field<&Configuration::google, &Google::customURIScheme>,
     problemWithURIScheme},
    {"microsoft", "application_identifier", true,
     field<&Configuration::microsoft, &Microsoft::applicationIdentifier>,
     problemWithApplicationIdentifier},
    {"endpoints", "google_authorization_host", false,
     field<&Configuration::endpoints, &Endpoints::googleAuthorizationHost>, problemWithHost},
    {"endpoints", "google_token_host", false,
     field<&Configuration::endpoints, &Endpoints::googleTokenHost>, problemWithHost},
    {"endpoints", "microsoft_login_host", false,
     field<&Configuration::endpoints, &Endpoints::microsoftLoginHost>, problemWithHost},
    {"endpoints", "certificate_authority_file", true,
     field<&Configuration::endpoints, &Endpoints::certificateAuthorityFile>, problemWithPath},
    {"keychain", "kind", true, field<&Configuration::keychain, &Keychain::kind>, problemWithKind},
    {"keychain", "directory", true, field<&Configuration::keychain, &Keychain::directory>,
     problemWithPath},
    {"keychain", "key_file", true, field<&Configuration::keychain, &Keychain::keyFile>,
     problemWithPath},
    {"keychain", "protection", false, field<&Configuration::keychain, &Keychain::protection>,
     problemWithProtection},
    {"keychain", "passphrase_command", true,
     field<&Configuration::keychain, &Keychain::passphraseCommand>, problemWithCommand},
};

bool isSection(std::string_view name) {
  for (const Key& key : kKeys) {
    if (!name.empty() && key.section == name) return true;
  }
  return false;
}

const Key* findKey(std::string_view section, std::string_view name) {
  for (const Key& key : kKeys) {
    if (key.section == section && key.name == name) return &key;
  }
  return nullptr;
}

// Reads a parsed file into a configuration. Stops at the first failure. Sentences never quote a
// value: it may be a secret in the wrong place.
class Reader {
 public:
  explicit Reader(Configuration& configuration) : configuration_(configuration) {}

  std::optional<Failure> read(const toml::table& file) {
    for (const auto& [key, node] : file) {
      const std::string_view name = key.str();
      auto failure = isSection(name) ? readSection(name, key, node) : readValue("", key, node);
      if (failure) return failure;
    }
    return std::nullopt;
  }

 private:
  std::string place(const toml::source_region& source) const {
    return configuration_.path + ":" + std::to_string(source.begin.line) + ": ";
  }

  std::optional<Failure> readSection(std::string_view name, const toml::key& sectionKey,
                                     const toml::node& node) {
    const toml::table* const section = node.as_table();
    if (section == nullptr) {
      return Failure{kFailed, place(sectionKey.source()) + "\"" + std::string(name) +
                                  "\" must be a section: write it as [" + std::string(name) + "]."};
    }
    for (const auto& [key, value] : *section) {
      if (auto failure = readValue(name, key, value)) return failure;
    }
    return std::nullopt;
  }

  std::optional<Failure> readValue(std::string_view section, const toml::key& name,
                                   const toml::node& node) {
    const std::string fullName = section.empty()
                                     ? std::string(name.str())
                                     : std::string(section) + "." + std::string(name.str());
    const std::string quoted = place(name.source()) + "\"" + printable(fullName) + "\" ";
    const Key* const key = findKey(section, name.str());
    if (key == nullptr) {
      configuration_.warnings.push_back(quoted +
                                        "is not a key that qvr-oauth2 knows, and is ignored: check "
                                        "its spelling and its section.");
      return std::nullopt;
    }
    const std::optional<std::string> value = node.value_exact<std::string>();
    if (!value) return Failure{kFailed, quoted + "must be a text in double quotes."};
    if (value->empty() && key->isOptional) return std::nullopt;
    const std::string problem = key->problem(*value);
    if (!problem.empty()) return Failure{kFailed, quoted + problem + "."};
    key->field(configuration_) = *value;
    return std::nullopt;
  }

  Configuration& configuration_;
};

Failure cannotRead(const std::string& path, const std::string& why) {
  return {kFailed, "The configuration " + path + " cannot be read (" + why + "): mend it, or run " +
                       configCommand(path) + " to write a new one."};
}

// Paths are below the file's folder; the keychain's have a place of their own by default.
std::optional<Failure> resolvePaths(Configuration& configuration) {
  const std::string folder = parentFolder(configuration.path);
  Configuration::Keychain& keychain = configuration.keychain;
  for (std::string* path : {&configuration.endpoints.certificateAuthorityFile, &keychain.directory,
                            &keychain.keyFile}) {
    if (!path->empty()) *path = resolved(*path, folder);
  }
  const auto data = dataFolder();
  const auto settings = configurationFolder();
  if ((keychain.directory.empty() && !data) || (keychain.keyFile.empty() && !settings)) {
    return Failure{kFailed, "Your home folder is not known: set HOME."};
  }
  if (keychain.directory.empty()) keychain.directory = *data + "/items";
  if (keychain.keyFile.empty()) keychain.keyFile = *settings + "/key";
  return std::nullopt;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<Failure> checkWhole(const Configuration& configuration) {
  if (configuration.bundleIdentifier.empty()) {
    return Failure{kFailed, "The configuration " + configuration.path +
                                " holds no bundle_identifier: run " +
                                configCommand(configuration.path) + " to write one."};
  }
  const std::string microsoft = "msauth." + configuration.bundleIdentifier;
  if (equalIgnoringCase(configuration.google.customURIScheme, microsoft)) {
    return Failure{kFailed, "The configuration " + configuration.path +
                                " gives both providers one URI scheme: choose another "
                                "custom_uri_scheme under [google]."};
  }
  return std::nullopt;
}

// The content of an open file; absent, with errno set, when it cannot be read.
std::optional<std::string> contentOf(int file, off_t size) {
  std::string text(static_cast<std::size_t>(size), '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = read(file, text.data() + length, text.size() - length);
    if (count < 0 && errno != EINTR) return std::nullopt;
    if (count == 0) break;
    if (count > 0) length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text;
}

}  // namespace

std::optional<std::string> defaultConfigurationPath() {
  auto folder = configurationFolder();
  if (!folder) return std::nullopt;
  return *folder + "/config.toml";
}

std::variant<Configuration, Failure> parseConfiguration(std::string_view text,
                                                        const std::string& path) {
  Configuration configuration;
  configuration.path = path;
  try {
    if (auto failure = Reader(configuration).read(toml::parse(text))) return *failure;
  } catch (const toml::parse_error& error) {  // its own text may quote a value
    return Failure{kFailed, path + ":" + std::to_string(error.source().begin.line) +
                                ": this is not TOML: write name = \"value\" on a line of its own, "
                                "with the value in double quotes."};
  }
  if (auto failure = resolvePaths(configuration)) return *failure;
  if (auto failure = checkWhole(configuration)) return *failure;
  return configuration;
}

std::variant<std::string, Failure> readConfigurationText(const std::string& path, mode_t* mode) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // no wait for a FIFO
  if (file < 0 && errno == ENOENT) {
    return Failure{kFailed, "There is no configuration at " + path + ": run " +
                                configCommand(path) + " to write one."};
  }
  if (file < 0) return cannotRead(path, std::strerror(errno));
  struct stat status = {};
  const bool isReadable =
      fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kLargestFile;
  const auto text = isReadable ? contentOf(file, status.st_size) : std::nullopt;
  const std::string reason = isReadable ? std::strerror(errno) : "it is not a small file";
  close(file);
  if (!text) return cannotRead(path, reason);
  *mode = status.st_mode;
  return *text;
}

std::variant<Configuration, Failure> readConfiguration(const std::string& path) {
  mode_t mode = 0;
  auto text = readConfigurationText(path, &mode);
  if (auto* failure = std::get_if<Failure>(&text)) return *failure;
  auto result = parseConfiguration(std::get<std::string>(text), path);
  if (auto* configuration = std::get_if<Configuration>(&result)) {
    if (!configuration->google.clientSecret.empty() && (mode & 077) != 0) {
      configuration->warnings.push_back("The configuration " + path +
                                        " holds a client secret and is open to other users: run "
                                        "`chmod 600 " +
                                        shellQuoted(path) + "`.");
    }
  }
  return result;
}

std::optional<Failure> registrationProblem(const Configuration& configuration,
                                           std::string_view provider) {
  const auto lacks = [&configuration](const char* key) {
    return Failure{kFailed, "The configuration " + configuration.path + " holds no " + key +
                                ": run " + configCommand(configuration.path) +
                                " to see where to get one."};
  };
  if (provider == QVROAuth2ProviderMicrosoft) {
    if (configuration.microsoft.applicationIdentifier.empty()) {
      return lacks("application_identifier under [microsoft]");
    }
    return std::nullopt;
  }
  if (configuration.google.clientIdentifier.empty()) {
    return lacks("client_identifier under [google]");
  }
  if (configuration.google.customURIScheme.empty()) {
    return lacks("custom_uri_scheme under [google]");
  }
  return std::nullopt;
}

}  // namespace host
