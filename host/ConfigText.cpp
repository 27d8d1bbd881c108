#include "host/ConfigText.h"

namespace host {
namespace {

// A TOML basic string.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

std::string line(std::string_view key, std::string_view value, std::string_view comment) {
  return "# " + std::string(comment) + "\n" + std::string(key) + " = " + quoted(value) + "\n";
}

std::string secretText(const std::string& secret, bool hide) {
  return hide && !secret.empty() ? "{length = " + std::to_string(secret.size()) + "}" : secret;
}

std::string registrations(const Configuration& configuration, bool hideSecrets) {
  const Configuration::Google& google = configuration.google;
  return "\n[google]\n" +
         line("client_identifier", google.clientIdentifier,
              "The client ID of the registration; empty when you do not use Google.") +
         line("client_secret", secretText(google.clientSecret, hideSecrets),
              "The client secret; empty when Google gave none.") +
         line("custom_uri_scheme", google.customURIScheme,
              "The part of the redirect URI before \":/oauth2/auth\".") +
         "\n[microsoft]\n" +
         line("application_identifier", configuration.microsoft.applicationIdentifier,
              "The application (client) ID; empty when you do not use Microsoft.");
}

std::string endpoints(const Configuration::Endpoints& hosts) {
  return "\n[endpoints]\n" +
         line("google_authorization_host", hosts.googleAuthorizationHost,
              "Host names, each optionally with a port; others only for national clouds and "
              "tests.") +
         line("google_token_host", hosts.googleTokenHost, "For tokens and their revocation.") +
         line("microsoft_login_host", hosts.microsoftLoginHost, "For everything at Microsoft.") +
         line("certificate_authority_file", hosts.certificateAuthorityFile,
              "A PEM file of certificates to trust; empty for the system's.");
}

std::string keychainSection(const Configuration::Keychain& keychain) {
  return "\n[keychain]\n" +
         line("kind", keychain.kind,
              "Where tokens are kept: \"secret-service\", the desktop's keyring, or "
              "\"encrypted-file\", a\n# sealed file for each account; empty to have the first "
              "command choose. To change it\n# later, run `qvr-oauth2 keychain move`.") +
         line("directory", keychain.directory,
              "The folder of the encrypted files; empty for $XDG_DATA_HOME/qvr-oauth2/items.") +
         line("key_file", keychain.keyFile,
              "The key of the files; empty for $XDG_CONFIG_HOME/qvr-oauth2/key.") +
         line("protection", keychain.protection,
              "\"key-file\", or \"passphrase\" for a key made from one instead.") +
         line("passphrase_command", keychain.passphraseCommand,
              "A command that prints the passphrase; empty to be asked on the terminal.\n# "
              "--passphrase-fd goes before both.");
}

}  // namespace

std::string googleInstructions(std::string_view bundleIdentifier) {
  return "Google: open https://console.cloud.google.com/auth/clients and choose or make a "
         "project.\n"
         "  1. Under \"Audience\", add the accounts you will sign in with as test users, or "
         "publish\n"
         "     the app: tokens of an app in testing end after 7 days.\n"
         "  2. Under \"Data access\", add the scopes https://mail.google.com/ (the Gmail API "
         "has to\n"
         "     be enabled for the project), openid and email.\n"
         "  3. Under \"Clients\", create a client of type \"iOS\", which may use a URI scheme of "
         "its\n"
         "     own. As bundle ID enter\n"
         "         " +
         std::string(bundleIdentifier) +
         "\n"
         "  4. Write down the client ID and the iOS URL scheme. There is no secret. The redirect "
         "URI\n"
         "     is that scheme followed by :/oauth2/auth, and is not entered anywhere.\n";
}

std::string microsoftInstructions(std::string_view bundleIdentifier) {
  return "Microsoft: open https://entra.microsoft.com, App registrations, New registration.\n"
         "  1. As supported account types choose any organizational directory and personal\n"
         "     Microsoft accounts.\n"
         "  2. As redirect URI choose \"Public client/native (mobile & desktop)\" and enter "
         "exactly\n"
         "         " +
         microsoftRedirectURI(bundleIdentifier) +
         "\n"
         "  3. Under \"API permissions\", add the delegated permissions of Microsoft Graph\n"
         "     IMAP.AccessAsUser.All, POP.AccessAsUser.All, SMTP.Send, openid, email and\n"
         "     offline_access.\n"
         "  4. Write down the application (client) ID. There is no secret.\n";
}

std::string suggestedURIScheme(std::string_view clientIdentifier,
                               std::string_view bundleIdentifier) {
  constexpr std::string_view kSuffix = ".apps.googleusercontent.com";
  if (!clientIdentifier.ends_with(kSuffix)) return std::string(bundleIdentifier);
  clientIdentifier.remove_suffix(kSuffix.size());
  return "com.googleusercontent.apps." + std::string(clientIdentifier);
}

std::string configurationText(const Configuration& configuration, bool hideSecrets) {
  return line("bundle_identifier", configuration.bundleIdentifier,
              "Your name for this app, in reverse domain form. It is part of the redirect URI at\n"
              "# Microsoft and of the names of stored items: after a change, sign in again.") +
         registrations(configuration, hideSecrets) + endpoints(configuration.endpoints) +
         keychainSection(configuration.keychain);
}

std::string asComment(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view each = text.substr(0, end);
    result += each.empty() ? "#" : "# ";
    result.append(each).append("\n");
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return result;
}

}  // namespace host
