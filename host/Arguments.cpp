#include "host/Arguments.h"

#include <algorithm>
#include <iterator>

namespace host {
namespace {

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

void addToken(CLI::App& application, Arguments& arguments) {
  CLI::App* const command = application.add_subcommand("token", "Print an access token");
  addAccount(*command, arguments);
  command->add_option("--format", arguments.format,
                      "raw (the default), xoauth2 or oauthbearer (for SASL), or json");
  command->add_option("--host", arguments.mailHost, "oauthbearer: the mail server's name");
  command->add_option("--port", arguments.mailPort, "oauthbearer: the mail server's port");
  command->add_option("--min-valid", arguments.token.minimumSeconds,
                      "Refresh a token that expires within so many seconds (default 60)");
  command->add_flag("--force-refresh", arguments.token.forceRefresh,
                    "Refresh even if the stored token has not expired");
}

void addStatus(CLI::App& application, Arguments& arguments) {
  CLI::App* const command =
      application.add_subcommand("status", "Show what is stored of an account, without its tokens");
  addAccount(*command, arguments);
  command->add_flag("--json", arguments.asJSON, "Print it as JSON");
}

void addAccounts(CLI::App& application, Arguments& arguments) {
  application.add_subcommand("accounts", "List who is signed in: provider, tab, user")
      ->add_flag("--json", arguments.asJSON, "Print the list as JSON");
}

void addSignOut(CLI::App& application, Arguments& arguments) {
  CLI::App* const command =
      application.add_subcommand("sign-out", "Revoke the grant and remove what is stored");
  addAccount(*command, arguments);
  command->add_flag("--local", arguments.localOnly, "Remove without revoking");
}

void addKeychain(CLI::App& application, Arguments& arguments) {
  CLI::App* const command = application.add_subcommand("keychain", "Where tokens are kept");
  command->require_subcommand(1);
  command->add_subcommand("move", "Carry all tokens over to the other keychain, and use that")
      ->add_option("KEYCHAIN", arguments.keychain,
                   "secret-service (the desktop's keyring) or file (encrypted files)")
      ->required();
}

void addOpenURL(CLI::App& application, Arguments& arguments) {
  application
      .add_subcommand("open-url", "Hand a redirect to the waiting sign-in (for the desktop)")
      ->add_option("URL", arguments.url, "The redirect; - reads it from standard input")
      ->required();
}

void addRegister(CLI::App& application, Arguments&) {
  application.add_subcommand("register", "Have the desktop hand redirects to this command");
}

void addUnregister(CLI::App& application, Arguments& arguments) {
  application.add_subcommand("unregister", "Undo what register did")
      ->add_flag("--all", arguments.all, "For every configuration there was; reads none");
}

// Run by the session bus, by the file that `register` writes; no command for people.
void addActivate(CLI::App& application, Arguments& arguments) {
  application.add_subcommand("activate", "")
      ->group("")
      ->add_option("NAME", arguments.busName)
      ->required();
}

void addDoctor(CLI::App& application, Arguments& arguments) {
  application.add_subcommand("doctor", "Check everything that signing in needs")
      ->add_flag("--json", arguments.asJSON, "Print the checks as JSON");
}

void addConfig(CLI::App& application, Arguments& arguments) {
  application.add_subcommand("config", "Write a configuration, and say where to register")
      ->add_flag("--show", arguments.show, "Show what is in force, without secrets");
}

void addVersion(CLI::App& application, Arguments&) {
  application.add_subcommand("version", "Print the version");
}

struct Command {
  std::string_view name;
  void (*declare)(CLI::App& application, Arguments& arguments);
};

// In the order of the help.
constexpr Command kCommands[] = {
    {"sign-in", addSignIn},    {"token", addToken},       {"status", addStatus},
    {"accounts", addAccounts}, {"sign-out", addSignOut},  {"keychain", addKeychain},
    {"open-url", addOpenURL},  {"register", addRegister}, {"unregister", addUnregister},
    {"activate", addActivate}, {"doctor", addDoctor},     {"config", addConfig},
    {"version", addVersion},
};

void addGlobal(CLI::App& application, Arguments& arguments) {
  application.add_option("--config", arguments.configurationPath,
                         "The configuration file (default ~/.config/qvr-oauth2/config.toml)");
  application.add_option("--passphrase-fd", arguments.passphraseDescriptor,
                         "Read the passphrase of the encrypted files from this file descriptor");
  application.add_option(
      "--timeout", arguments.timeoutSeconds,
      "Seconds that the whole command may take (default: each wait has a limit)");
  application.add_flag("-v,--verbose", arguments.verbose,
                       "Show each step on standard error, secrets by their length alone");
  application.add_flag_callback(
      "--version", [] { throw CLI::CallForVersion("", kDone); }, "Print the version");
}

}  // namespace

void declareArguments(CLI::App& application, Arguments& arguments, std::string_view command) {
  application.require_subcommand(1);
  application.fallthrough();
  addGlobal(application, arguments);
  const auto* const asked = std::ranges::find(kCommands, command, &Command::name);
  if (asked != std::end(kCommands)) return asked->declare(application, arguments);
  for (const Command& each : kCommands)
    each.declare(application, arguments);
}

}  // namespace host
