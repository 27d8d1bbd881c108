#include "host/SignIn.h"

#include <unistd.h>

#include <utility>

#include "QVROAuth2Client/QVRGoogleOAuth2PublicClient.h"
#include "QVROAuth2Client/QVRMicrosoftOAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/AccountLock.h"
#include "host/AccountSubject.h"
#include "host/ApplicationIdentifier.h"
#include "host/Console.h"
#include "host/IdentityToken.h"
#include "host/KeychainTrial.h"
#include "host/Messages.h"
#include "host/Paths.h"
#include "host/Record.h"
#include "host/Scopes.h"
#include "host/Setup.h"
#include "host/Signals.h"

namespace host {

namespace {

qvr::Ref<QVROAuth2PublicClient> makeGoogleClient(const SignInOptions& options) {
  const auto client = QVRGoogleOAuth2PublicClient::init();
  client->setLoginHint(options.account.username);
  return client;
}

qvr::Ref<QVROAuth2PublicClient> makeMicrosoftClient(const SignInOptions& options) {
  const auto client = QVRMicrosoftOAuth2PublicClient::init();
  client->setLoginHint(options.account.username);
  client->setPrompt(options.prompt);
  client->setDomainHint(options.domainHint);
  return client;
}

// A record fresh from the provider, and whom the browser signed in, as far as the provider says.
struct SignedIn {
  qvr::Ref<QVROAuth2Token> record;
  std::vector<std::string> accountNames;
  std::optional<std::string> subject;
};

// Nothing is stored.
std::variant<SignedIn, Failure> obtainRecord(const SignInOptions& options,
                                             const SignInEnvironment& environment) {
  const qvr::Ref<QVROAuth2PublicClient> client = makeSignInClient(options);
  const auto code = authorize(client, options, environment);
  if (const auto* failure = std::get_if<Failure>(&code)) return *failure;
  const auto result =
      exchangeCode(*client, std::get<std::string>(code), options.account, environment.signals);
  if (const auto* failure = std::get_if<Failure>(&result)) return *failure;
  const auto& answer = std::get<TokenAnswer>(result);
  const auto record =
      recordFromAnswer(*answer.response, requestedScope(options), options.account, now());
  if (const auto* failure = std::get_if<Failure>(&record)) return *failure;
  return SignedIn{std::get<qvr::Ref<QVROAuth2Token>>(record), answer.accountNames, answer.subject};
}

// A keychain may ask the user for something; who does not want to answer can leave.
qvr::ErrorPtr storeUnlessTheUserLeaves(const Account& account,
                                       const qvr::Ref<QVROAuth2Token>& record) {
  const TerminationAllowed allowed;
  return storeRecord(account, record);
}

// Under the lock, so that a refresh of the record that is being replaced cannot come after it, and
// none of the new record meets what was noted for the old one.
std::optional<Failure> store(const Account& account, const SignedIn& signedIn,
                             const std::string& bundleIdentifier) {
  const auto lock = AccountLock::acquire(account);
  if (const auto* failure = std::get_if<Failure>(&lock)) return *failure;
  const qvr::ErrorPtr error = storeUnlessTheUserLeaves(account, signedIn.record);
  if (error) return failureForError(error, account);
  if (signedIn.subject) {
    noteSubject(bundleIdentifier, account, *signedIn.subject);
  } else {
    forgetSubject(bundleIdentifier, account);
  }
  return std::nullopt;
}

}  // namespace

qvr::Ref<QVROAuth2PublicClient> makeSignInClient(const SignInOptions& options) {
  const bool isGoogle = options.account.provider == QVROAuth2ProviderGoogle;
  auto client = isGoogle ? makeGoogleClient(options) : makeMicrosoftClient(options);
  client->setScope(requestedScope(options));
  return client;
}

std::string requestedScope(const SignInOptions& options) {
  return options.scope.value_or(std::string(defaultMailScope(options.account.provider)));
}

int runSignIn(const SignInOptions& options, const SignInEnvironment& environment) {
  const auto result = obtainRecord(options, environment);
  if (const auto* failure = std::get_if<Failure>(&result)) return report(*failure);
  const auto& signedIn = std::get<SignedIn>(result);
  if (const auto failure = store(options.account, signedIn, environment.bundleIdentifier)) {
    return report({failure->status, "The token could not be stored, so you are not signed in. " +
                                        failure->sentence});
  }
  const TerminationAllowed allowed;  // all is done: nobody has to wait for who does not read
  writeOut("Signed in " + printable(options.account.username) + " at " + options.account.provider +
           ".\n");
  for (const std::string& warning :
       warningsAboutRecord(*signedIn.record, requestedScope(options), options.account))
    say(warning);
  if (const auto warning = warningAboutAccount(signedIn.accountNames, options.account))
    say(*warning);
  return kDone;
}

int signIn(const Configuration& configuration, const SignInOptions& options) {
  if (const auto failure = registrationProblem(configuration, options.account.provider))
    return report(*failure);
  if (const auto failure = keychainProblem(*keychainItems(), keychainKind()))
    return report(*failure);
  if (const auto failure = AccountLock::problem(options.account)) return report(*failure);
  blockTerminationSignals();  // no thread has been started yet: the library does so when it must
  const SignalWatch signals;
  return runSignIn(options, {.browser = qvr::makeWorkspace(),
                             .runtimeFolder = runtimeFolder(),
                             .input = STDIN_FILENO,
                             .signals = signals.fileDescriptor(),
                             .busName = applicationIdentifier(configuration),
                             .bundleIdentifier = configuration.bundleIdentifier});
}

}  // namespace host
