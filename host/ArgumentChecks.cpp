#include <strings.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/Arguments.h"
#include "host/Console.h"
#include "host/KeychainMove.h"

namespace host {
namespace {

constexpr double kLongestSeconds = 24 * 60 * 60;

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

// False for what is no number, too.
bool isTimeout(double seconds) {
  return seconds > 0 && seconds <= kLongestSeconds;
}

Failure noTimeout() {
  return usageFailure("The timeout must be more than 0 and at most 86400 seconds.");
}

// True for visible ASCII, of which a host name or an address is made: anything else could end the
// field of RFC 7628 section 3.1 that it stands in.
bool isHostName(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

std::optional<Failure> checkAccount(Account& account) {
  const auto provider = providerNamed(account.provider);
  if (!provider) return usageFailure("The provider must be Google or Microsoft.");
  if (account.username.empty()) return usageFailure("The user must not be empty.");
  if (!isText(account.username))
    return usageFailure("The user must be text without control characters.");
  account.provider = *provider;
  return std::nullopt;
}

std::optional<Failure> checkSignIn(Arguments& arguments) {
  SignInOptions& options = arguments.signIn;
  for (const auto& text : {options.scope, options.prompt, options.domainHint}) {
    if (text && !isText(*text))
      return usageFailure("Options must be text without control characters.");
  }
  if (!isTimeout(options.timeoutSeconds)) return noTimeout();
  options.account = arguments.account;
  options.openBrowser = !arguments.noBrowser;
  return std::nullopt;
}

// The server, which only OAUTHBEARER tells.
std::optional<Failure> checkMailServer(const Arguments& arguments) {
  const bool isNamed = arguments.mailHost || arguments.mailPort;
  if (isNamed && arguments.token.format.kind != TokenFormat::Kind::kOAuthBearer)
    return usageFailure("--host and --port go with --format oauthbearer.", "token");
  if (arguments.mailHost && !isHostName(*arguments.mailHost))
    return usageFailure("The host must be a name of visible ASCII characters.", "token");
  if (arguments.mailPort && (*arguments.mailPort < 1 || *arguments.mailPort > 65535))
    return usageFailure("The port must be from 1 to 65535.", "token");
  return std::nullopt;
}

std::optional<Failure> checkToken(Arguments& arguments) {
  TokenOptions& options = arguments.token;
  const auto kind = tokenFormatNamed(arguments.format);
  if (!kind) return usageFailure("The format must be raw, xoauth2, oauthbearer or json.", "token");
  options.format.kind = *kind;
  if (auto failure = checkMailServer(arguments)) return failure;
  if (!(options.minimumSeconds >= 0 && options.minimumSeconds <= kLongestSeconds))
    return usageFailure("--min-valid must be from 0 to 86400 seconds.", "token");
  options.format.host = arguments.mailHost.value_or("");
  options.format.port = arguments.mailPort.value_or(0);
  options.account = arguments.account;
  return std::nullopt;
}

bool namesAnAccount(const std::string& command) {
  const char* const commands[] = {"sign-in", "token", "status", "sign-out"};
  return std::find(std::begin(commands), std::end(commands), command) != std::end(commands);
}

}  // namespace

std::optional<Failure> checkArguments(const std::string& command, Arguments& arguments) {
  if (arguments.timeoutSeconds && !isTimeout(*arguments.timeoutSeconds)) return noTimeout();
  if (command == "keychain" && !keychainNamed(arguments.keychain))
    return usageFailure("The keychain must be secret-service or file.");
  if (!namesAnAccount(command)) return std::nullopt;
  if (auto failure = checkAccount(arguments.account)) return failure;
  if (command == "sign-in") return checkSignIn(arguments);
  if (command == "token") return checkToken(arguments);
  return std::nullopt;
}

Failure usageFailure(std::string sentence, const std::string& command) {
  return {kUsage, std::move(sentence) + " See `qvr-oauth2 " +
                      (command.empty() ? "" : command + " ") + "--help`."};
}

}  // namespace host
