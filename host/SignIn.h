// How `sign-in` is put together; signIn() of Command.h runs it with the process's own streams.
//
//   keychainProblem()     (KeychainTrial.h) before anything else: would the token find a place?
//   authorize()           the browser's part, up to the authorization code
//   exchangeCode()        the code against the provider's answer
//   recordFromAnswer()    the answer as a record, checked
//   storeRecord()         (Record.h) into the keychain; only then is anybody signed in
#pragma once

#include <unistd.h>

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"
#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Workspace.h"
#include "host/Command.h"
#include "host/Failure.h"

namespace host {

struct SignInEnvironment {
  qvr::Ref<qvr::Workspace> browser;  // what opens the address
  std::string runtimeFolder;         // where the redirect's socket is put
  int input = STDIN_FILENO;          // where a redirect may be pasted
  int signals = -1;                  // readable when the user wants to stop; see takeSignal()
  std::string busName{};             // under which redirects come over the session bus; or empty
  std::string bundleIdentifier{};    // under which whom the browser signed in is noted
};

// Signs in, from the client to the stored record, and says so. Returns an ExitStatus.
int runSignIn(const SignInOptions& options, const SignInEnvironment& environment);

// The scope that the options ask for: theirs, or the provider's default.
std::string requestedScope(const SignInOptions& options);

// The provider's client with the scope and the hints of the options.
qvr::Ref<QVROAuth2PublicClient> makeSignInClient(const SignInOptions& options);

// Sends the user to the browser and waits for the redirect: from the desktop over the session bus
// or by way of the socket, or pasted. The result is a code that can be exchanged. Everything runs
// on the calling thread.
std::variant<std::string, Failure> authorize(const qvr::Ref<QVROAuth2PublicClient>& client,
                                             const SignInOptions& options,
                                             const SignInEnvironment& environment);

// The provider's answer, and whom its ID token names, if there is one.
struct TokenAnswer {
  qvr::Ref<QVROAuth2AccessTokenResponse> response;
  std::vector<std::string> accountNames;
  std::optional<std::string> subject;
};

// Exchanges the code. A signal cancels it.
std::variant<TokenAnswer, Failure> exchangeCode(const QVROAuth2PublicClient& client,
                                                const std::string& code, const Account& account,
                                                int signals);

// The record of an answer. Scopes that the answer leaves out are those that were asked for
// (RFC 6749 section 5.1); an answer without a token or its type is a failure.
std::variant<qvr::Ref<QVROAuth2Token>, Failure> recordFromAnswer(
    const QVROAuth2AccessTokenResponse& answer, const std::string& scope, const Account& account,
    qvr::Date now);

// What the user should know about the record, a sentence each: that it cannot be refreshed, or
// covers less than was asked for.
std::vector<std::string> warningsAboutRecord(const QVROAuth2Token& record, const std::string& scope,
                                             const Account& account);

}  // namespace host
