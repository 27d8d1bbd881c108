#include "host/CommandLine.h"

#include <fcntl.h>
#include <strings.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/KeychainMove.h"
#include "host/Setup.h"
#include "host/Signals.h"

namespace host {
namespace {

constexpr const char* kDescription =
    "Access tokens for mail clients, sync tools and senders.\n"
    "Exit status: 0 done, 1 failed, 2 usage, 3 nothing stored (sign in first), 4 sign in again,\n"
    "5 try again later.";
constexpr double kLongestTimeoutSeconds = 24 * 60 * 60;

struct Arguments {
  std::string configurationPath;
  std::optional<int> passphraseDescriptor;
  Account account;
  SignInOptions signIn;
  bool noBrowser = false;
  bool forceRefresh = false;
  bool localOnly = false;
  bool show = false;
  bool asJSON = false;
  bool all = false;
  std::string url;
  std::string busName;
  std::string keychain;
};

// `command` is the one whose help says more; empty for the help of them all.
Failure usage(std::string sentence, const std::string& command = "") {
  return {kUsage, std::move(sentence) + " See `qvr-oauth2 " +
                      (command.empty() ? "" : command + " ") + "--help`."};
}

// The library's exact name of a provider, given in any case.
std::optional<std::string> providerNamed(const std::string& text) {
  for (const std::string_view provider : {QVROAuth2ProviderGoogle, QVROAuth2ProviderMicrosoft}) {
    const std::string name(provider);
    if (strcasecmp(text.c_str(), name.c_str()) == 0 && text.size() == name.size()) return name;
  }
  return std::nullopt;
}

// True for UTF-8 without control characters: what names, scopes and hints are made of.
bool isText(const std::string& text) {
  return isUTF8(text) && printable(text) == text;
}

void addAccount(CLI::App& command, Arguments& arguments) {
  command.add_option("PROVIDER", arguments.account.provider, "Google or Microsoft")->required();
  command.add_option("USER", arguments.account.username, "The account, an address as a rule")
      ->required();
}

void addSignIn(CLI::App& application, Arguments& arguments) {
  CLI::App* const command = application.add_subcommand("sign-in", "Sign in with a browser");
  addAccount(*command, arguments);
  SignInOptions& options = arguments.signIn;
  command->add_option("--scope", options.scope, "The scopes to ask for, separated by spaces");
  command->add_option("--prompt", options.prompt, "Microsoft: what to ask, such as select_account");
  command->add_option("--domain-hint", options.domainHint, "Microsoft: the organisation's domain");
  command->add_option("--timeout", options.timeoutSeconds,
                      "Seconds to wait for the browser (default 300)");
  command->add_flag("--no-browser", arguments.noBrowser, "Only print the URL to open");
}

// The commands about the desktop: its keyring and the URLs it hands over.
void addDesktop(CLI::App& application, Arguments& arguments) {
  CLI::App* const keychain = application.add_subcommand("keychain", "Where tokens are kept");
  keychain->require_subcommand(1);
  keychain->add_subcommand("move", "Carry all tokens over to the other keychain, and use that")
      ->add_option("KEYCHAIN", arguments.keychain,
                   "secret-service (the desktop's keyring) or file (encrypted files)")
      ->required();
  application.add_subcommand("register", "Have the desktop hand redirects to this command");
  application.add_subcommand("unregister", "Undo what register did")
      ->add_flag("--all", arguments.all, "For every configuration there was; reads none");
  application.add_subcommand("doctor", "Check everything that signing in needs")
      ->add_flag("--json", arguments.asJSON, "Print the checks as JSON");
  // Run by the session bus, by the file that `register` writes; no command for people.
  application.add_subcommand("activate", "")
      ->group("")
      ->add_option("NAME", arguments.busName)
      ->required();
}

void addOthers(CLI::App& application, Arguments& arguments) {
  application
      .add_subcommand("open-url", "Hand a redirect to the waiting sign-in (for the desktop)")
      ->add_option("URL", arguments.url, "The redirect; - reads it from standard input")
      ->required();
  CLI::App* const token = application.add_subcommand("token", "Print an access token");
  addAccount(*token, arguments);
  token->add_flag("--force-refresh", arguments.forceRefresh,
                  "Refresh even if the stored token has not expired");
  application.add_subcommand("accounts", "List who is signed in: provider, tab, user");
  CLI::App* const signOutCommand =
      application.add_subcommand("sign-out", "Revoke the grant and remove what is stored");
  addAccount(*signOutCommand, arguments);
  signOutCommand->add_flag("--local", arguments.localOnly, "Remove without revoking");
  addDesktop(application, arguments);
  application.add_subcommand("config", "Write a configuration, and say where to register")
      ->add_flag("--show", arguments.show, "Show what is in force, without secrets");
  application.add_subcommand("version", "Print the version");
}

// What the arguments lack, checked after they have been read. Also completes the options.
std::optional<Failure> checkAccount(Arguments& arguments) {
  Account& account = arguments.account;
  const auto provider = providerNamed(account.provider);
  if (!provider) return usage("The provider must be Google or Microsoft.");
  if (account.username.empty()) return usage("The user must not be empty.");
  if (!isText(account.username)) return usage("The user must be text without control characters.");
  account.provider = *provider;
  return std::nullopt;
}

std::optional<Failure> checkSignIn(Arguments& arguments) {
  SignInOptions& options = arguments.signIn;
  for (const auto& text : {options.scope, options.prompt, options.domainHint}) {
    if (text && !isText(*text)) return usage("Options must be text without control characters.");
  }
  const bool isReasonable =
      options.timeoutSeconds > 0 && options.timeoutSeconds <= kLongestTimeoutSeconds;
  if (!isReasonable) return usage("The timeout must be more than 0 and at most 86400 seconds.");
  options.account = arguments.account;
  options.openBrowser = !arguments.noBrowser;
  return std::nullopt;
}

std::variant<std::string, Failure> configurationPath(const Arguments& arguments) {
  if (!arguments.configurationPath.empty()) return arguments.configurationPath;
  const auto path = defaultConfigurationPath();
  if (!path) return Failure{kFailed, "Your home folder is not known: set HOME."};
  return *path;
}

// Looks at the descriptor before any other is opened that could take its number, and keeps it from
// the programs that are started.
std::optional<Failure> checkPassphraseDescriptor(const std::optional<int>& descriptor) {
  if (!descriptor) return std::nullopt;
  const int flags = fcntl(*descriptor, F_GETFL);
  if (flags >= 0 && (flags & O_ACCMODE) != O_WRONLY && (flags & O_PATH) == 0) {
    fcntl(*descriptor, F_SETFD, FD_CLOEXEC);
    return std::nullopt;
  }
  return Failure{kUsage, "File descriptor " + std::to_string(*descriptor) +
                             ", which --passphrase-fd names, is not open for reading: redirect "
                             "something to it, as in `--passphrase-fd 3 3<FILE`."};
}

// The configuration, with its warnings said.
std::variant<Configuration, Failure> loadConfiguration(const Arguments& arguments) {
  auto path = configurationPath(arguments);
  if (auto* failure = std::get_if<Failure>(&path)) return *failure;
  auto result = readConfiguration(std::get<std::string>(path));
  if (auto* configuration = std::get_if<Configuration>(&result)) {
    for (const std::string& warning : configuration->warnings)
      say("warning: " + warning);
    configuration->keychain.passphraseDescriptor = arguments.passphraseDescriptor.value_or(-1);
  }
  return result;
}

int runConfig(const Arguments& arguments) {
  if (arguments.show) {
    auto configuration = loadConfiguration(arguments);
    if (auto* failure = std::get_if<Failure>(&configuration)) return report(*failure);
    return showConfiguration(std::get<Configuration>(configuration));
  }
  auto path = configurationPath(arguments);
  if (auto* failure = std::get_if<Failure>(&path)) return report(*failure);
  return config(std::get<std::string>(path));
}

// The commands that work on the keychain.
int runWithLibrary(const std::string& command, const Arguments& arguments) {
  auto loaded = loadConfiguration(arguments);
  if (auto* failure = std::get_if<Failure>(&loaded)) return report(*failure);
  const auto& configuration = std::get<Configuration>(loaded);
  if (command == "sign-in") {
    if (auto failure = registrationProblem(configuration, arguments.account.provider)) {
      return report(*failure);
    }
  }
  if (auto failure = installHost(configuration)) return report(*failure);
  if (command == "sign-in") return signIn(configuration, arguments.signIn);
  if (command == "token") {
    return token(configuration, {arguments.account, arguments.forceRefresh});
  }
  if (command == "sign-out") {
    return signOut(configuration, arguments.account, arguments.localOnly);
  }
  return accounts(configuration);
}

int runUnregister(const Arguments& arguments) {
  if (arguments.all) return unregisterAll();
  auto loaded = loadConfiguration(arguments);
  if (const auto* failure = std::get_if<Failure>(&loaded)) {
    return report({failure->status,
                   failure->sentence + " `qvr-oauth2 unregister --all` needs no configuration."});
  }
  return unregisterSchemes(std::get<Configuration>(loaded));
}

// The commands that need the configuration and not the library.
int runWithConfiguration(const std::string& command, const Arguments& arguments) {
  auto loaded = loadConfiguration(arguments);
  if (auto* failure = std::get_if<Failure>(&loaded)) return report(*failure);
  const auto& configuration = std::get<Configuration>(loaded);
  if (command == "keychain") return moveKeychain(configuration, arguments.keychain);
  return registerSchemes(configuration);
}

int runDoctor(const Arguments& arguments) {
  auto path = configurationPath(arguments);
  if (auto* failure = std::get_if<Failure>(&path)) return report(*failure);
  return doctor({.configurationPath = std::get<std::string>(path),
                 .asJSON = arguments.asJSON,
                 .passphraseDescriptor = arguments.passphraseDescriptor.value_or(-1)});
}

int run(const std::string& command, Arguments& arguments) {
  if (auto failure = checkPassphraseDescriptor(arguments.passphraseDescriptor))
    return report(*failure);
  if (command == "version") return version();
  if (command == "open-url") return openURL(arguments.url);
  if (command == "activate") return activate(arguments.busName);
  if (command == "config") return runConfig(arguments);
  if (command == "doctor") return runDoctor(arguments);
  if (command == "keychain" && !keychainNamed(arguments.keychain)) {
    return report(usage("The keychain must be secret-service or file."));
  }
  if (command == "unregister") return runUnregister(arguments);
  if (command == "keychain" || command == "register") {
    return runWithConfiguration(command, arguments);
  }
  if (command != "accounts") {
    if (auto failure = checkAccount(arguments)) return report(*failure);
  }
  if (command == "sign-in") {
    if (auto failure = checkSignIn(arguments)) return report(*failure);
  }
  return runWithLibrary(command, arguments);
}

// The options among the arguments that nobody took, without their values.
std::string optionNames(const std::vector<std::string>& arguments) {
  std::string names;
  for (const std::string& argument : arguments) {
    if (argument.starts_with("-")) names += " " + argument.substr(0, argument.find('='));
  }
  return names;
}

// What the parser found wrong. Its own words may quote an argument, and a redirect URL among them
// carries a secret: only the names of options are passed on.
Failure failureForParseError(const CLI::App& application, const CLI::ParseError& error) {
  const std::string unknown = optionNames(application.remaining(true));
  if (!unknown.empty()) return usage("This is not an option here:" + unknown + ".");
  if (application.get_subcommands().empty()) {
    return usage(
        "Choose a command: sign-in, open-url, token, accounts, sign-out, keychain, register, "
        "unregister, doctor, config or version.");
  }
  const std::string command = application.get_subcommands().front()->get_name();
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return usage("There is an argument too many.", command);
  }
  if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
    return usage("An option has a value of the wrong kind.", command);
  }
  return usage(std::string(error.what()) + ".", command);
}

int parseAndRun(int argc, const char* const* argv) {
  Arguments arguments;
  CLI::App application(kDescription, "qvr-oauth2");
  application.require_subcommand(1);
  application.fallthrough();
  application.add_option("--config", arguments.configurationPath,
                         "The configuration file (default ~/.config/qvr-oauth2/config.toml)");
  application.add_option("--passphrase-fd", arguments.passphraseDescriptor,
                         "Read the passphrase of the encrypted files from this file descriptor");
  application.add_flag_callback(
      "--version", [] { throw CLI::CallForVersion("", kDone); }, "Print the version");
  addSignIn(application, arguments);
  addOthers(application, arguments);
  try {
    application.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return writeOut(application.help()) ? kDone : report(cannotWriteOutput());
  } catch (const CLI::CallForVersion&) {
    return version();
  } catch (const CLI::ParseError& error) {
    return report(failureForParseError(application, error));
  }
  return run(application.get_subcommands().front()->get_name(), arguments);
}

}  // namespace

int runCommandLine(int argc, const char* const* argv) {
  try {
    return parseAndRun(argc, argv);
  } catch (const std::bad_alloc&) {
    return report({kFailed, "There is not enough memory."});
  } catch (const std::exception& error) {
    return report({kFailed, std::string("This should not have happened: ") + error.what()});
  }
}

}  // namespace host
