#include "host/Messages.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "host/Console.h"
#include "host/RetryAfter.h"
#include "host/Secrets.h"
#include "host/Setup.h"

namespace host {
namespace {

using std::string;

constexpr std::size_t kLongestQuotation = 300;

// The end of a sentence about an error, by domain and code.
struct Hint {
  std::int64_t code;
  const char* text;
};

constexpr Hint kKeychainHints[] = {
    {qvr::errSecDiskFull, "The disk is full: make room and run the command again."},
    {qvr::errSecIO,
     "The keychain's files cannot be read or written: check the disk, and the folders under "
     "[keychain] in the configuration."},
    {qvr::errSecWrPerm,
     "The keychain's folder or key file is not yours to write: check the permissions and the "
     "[keychain] section of the configuration."},
    {qvr::errSecUserCanceled,
     "The keychain was not unlocked: run the command again and unlock it."},
    {qvr::errSecNotAvailable, "The keychain does not answer: try again later."},
    {qvr::errSecAuthFailed,
     "The keychain's key or passphrase is not the right one, or its key file or one of its folders "
     "is open to other users (then run `chmod 600` on the file and `chmod 700` on the folders): "
     "check the [keychain] section of the configuration."},
    {qvr::errSecInvalidKeychain,
     "The keychain's folder is damaged: restore it, or choose another one under [keychain] in the "
     "configuration and sign in again."},
    {qvr::errSecInteractionNotAllowed, "The keychain is locked: unlock it and try again."},
};

// What is different about the desktop's keyring.
constexpr Hint kKeyringHints[] = {
    {qvr::errSecIO,
     "The desktop's keyring did not do what it was asked: look into it with its own program, and "
     "try again."},
    {qvr::errSecUserCanceled,
     "The desktop's keyring was not unlocked: run the command again and unlock it."},
    {qvr::errSecNotAvailable,
     "The desktop's keyring, where tokens are kept, does not answer: log in to the desktop or "
     "start "
     "its keyring, and try again. While it is there, `qvr-oauth2 keychain move file` moves the "
     "tokens to files, which need no desktop."},
    {qvr::errSecInteractionNotAllowed,
     "The desktop's keyring is locked and nobody could be asked to unlock it: unlock it on the "
     "desktop and try again. While it is open, `qvr-oauth2 keychain move file` moves the tokens to "
     "files, which need no desktop."},
};

constexpr Hint kTransportHints[] = {
    {qvr::NSURLErrorUnknown, "failed for an unknown reason: try again later."},
    {qvr::NSURLErrorCancelled, "was cancelled."},
    {qvr::NSURLErrorTimedOut, "got no answer in time: try again later."},
    {qvr::NSURLErrorCannotFindHost,
     "failed, since its name could not be found: check the network connection and try again "
     "later."},
    {qvr::NSURLErrorCannotConnectToHost,
     "failed, since no connection could be made: try again later."},
    {qvr::NSURLErrorNetworkConnectionLost,
     "failed, since the connection was lost: try again later."},
    {qvr::NSURLErrorNotConnectedToInternet,
     "failed, since there is no network: connect and try again later."},
    {qvr::NSURLErrorCannotDecodeRawData, "got an answer that cannot be decoded."},
    {qvr::NSURLErrorCannotParseResponse,
     "got an answer that is not HTTP: check the [endpoints] section of the configuration."},
    {qvr::NSURLErrorDataLengthExceedsMaximum, "got an answer that is far too long."},
    {qvr::NSURLErrorSecureConnectionFailed,
     "failed, since no secure connection could be made: check the [endpoints] section of the "
     "configuration, and that nothing intercepts the connection."},
    {qvr::NSURLErrorServerCertificateHasBadDate,
     "was refused, since the server's certificate has expired: check this computer's clock."},
    {qvr::NSURLErrorServerCertificateUntrusted,
     "was refused, since the server's certificate is not trusted: nothing was sent; check that "
     "nothing intercepts the connection."},
    {qvr::NSURLErrorServerCertificateNotYetValid,
     "was refused, since the server's certificate is not valid yet: check this computer's clock."},
    {qvr::NSURLErrorClientCertificateRequired,
     "was refused, since the server wants a client certificate, which qvr-oauth2 cannot give."},
};

constexpr Hint kProtocolHints[] = {
    {QVROAuth2ErrorUnauthorizedClient, "Check the registration: `qvr-oauth2 config` says how."},
    {QVROAuth2ErrorInvalidClient, "Check the registration: `qvr-oauth2 config` says how."},
    {QVROAuth2ErrorRedirectURIMismatch,
     "Register the redirect URI that `qvr-oauth2 config` shows."},
};

// The same for errors that the user, or somebody for them, can mend; then they sign in.
constexpr Hint kConsentHints[] = {
    {QVROAuth2ErrorAccessDenied, "Give the consent that the page asks for when you sign in again"},
    {QVROAuth2ErrorInvalidScope, "Sign in again, and ask for other scopes with --scope"},
    {QVROAuth2ErrorAdminPolicyEnforced,
     "Ask the administrator of the account to allow the app, and sign in again"},
    {QVROAuth2ErrorDisallowedUserAgent, "Sign in again with another browser"},
    {QVROAuth2ErrorOrgInternal,
     "Sign in with an account of the organisation that registered the app"},
};

template <std::size_t N>
const char* findHint(const Hint (&hints)[N], std::int64_t code) {
  const Hint* const hint =
      std::find_if(hints, hints + N, [code](const Hint& each) { return each.code == code; });
  return hint == hints + N ? nullptr : hint->text;
}

// What a provider said, on one line, cut, and without the full stop that our sentence brings.
// Secrets go first: of one that is cut, a part would be left that is not known any more.
string quotation(const string& said) {
  string text = withoutSecrets(said);
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20; }, ' ');
  text = shortened(text, kLongestQuotation);
  while (!text.empty() && std::strchr(" .", text.back()) != nullptr)
    text.pop_back();
  return text;
}

string withCode(const qvr::Error& error) {
  return error.domain() + " " + std::to_string(error.code());
}

string protocolSentence(const qvr::Error& error, const Account& account, QVROAuth2Advice advice) {
  const qvr::TextView name =
      QVROAuth2ErrorStringFromCode(static_cast<QVROAuth2ErrorCode>(error.code()));
  const qvr::Text description = error.localizedDescription();
  string sentence = account.provider + " refused";
  if (name) sentence += " (" + string(name.view()) + ")";
  if (description && !description->empty()) sentence += ": " + quotation(*description);
  sentence += ". ";
  if (advice == QVROAuth2Advice::kSignInAgain) {
    return sentence + "Sign in again: " + signInCommand(account);
  }
  if (advice == QVROAuth2Advice::kTryAgainLater) return sentence + "Try again later.";
  if (const char* const hint = findHint(kConsentHints, error.code())) {
    return sentence + hint + ": " + signInCommand(account);
  }
  const char* const hint = findHint(kProtocolHints, error.code());
  return sentence + (hint != nullptr ? hint : "Trying again will not help.");
}

string keychainSentence(const qvr::Error& error, std::string_view kind, const Account& account) {
  if (error.code() == qvr::errSecItemNotFound) {
    return "Nothing is stored for " + nameOf(account) +
           ". Sign in first: " + signInCommand(account);
  }
  if (error.code() == qvr::errSecDecode) {
    return "The stored item for " + nameOf(account) +
           " is damaged. Sign in again to replace it: " + signInCommand(account);
  }
  if (const char* const hint = findHint(kKeyringHints, error.code());
      hint != nullptr && kind == kSecretService) {
    return hint;
  }
  if (const char* const hint = findHint(kKeychainHints, error.code())) return hint;
  return "The system failed with status " + std::to_string(error.code()) + ".";
}

string hostOf(const qvr::Error& error) {
  const qvr::Value* const value = error.userInfoValue(qvr::NSURLErrorFailingURLErrorKey);
  const qvr::URL* const url = value != nullptr ? value->as<qvr::URL>() : nullptr;
  const qvr::Text host = url != nullptr ? url->host() : std::nullopt;
  return host ? " (" + *host + ")" : "";
}

string transportSentence(const qvr::Error& error, const Account& account) {
  if (error.code() == qvr::NSURLErrorUserCancelledAuthentication) {
    return "The sign-in was cancelled.";
  }
  if (error.code() == qvr::NSURLErrorFileDoesNotExist) {
    return "The redirect is not one of qvr-oauth2's.";
  }
  const char* const hint = findHint(kTransportHints, error.code());
  return "The request to " + account.provider + hostOf(error) + " " +
         (hint != nullptr ? hint : "failed (" + withCode(error) + ").");
}

string httpSentence(std::int64_t statusCode, const Account& account, QVROAuth2Advice advice) {
  return account.provider + " answered with HTTP status " + std::to_string(statusCode) + " (" +
         qvr::HTTPURLResponse::localizedStringForStatusCode(statusCode) + "): " +
         (advice == QVROAuth2Advice::kTryAgainLater
              ? "try again later."
              : "check the [endpoints] section of the configuration.");
}

string cocoaSentence(const qvr::Error& error, const Account& account) {
  if (error.code() == qvr::NSPropertyListReadCorruptError) {
    return "The answer of " + account.provider +
           " cannot be read, as when a network wants you to log in on a page of its own: try again "
           "later.";
  }
  if (error.code() == qvr::NSCoderInvalidValueError) {
    return "The token for " + nameOf(account) + " cannot be written into a record.";
  }
  return "The stored item for " + nameOf(account) +
         " is no token record that can be read. Sign in again to replace it: " +
         signInCommand(account);
}

string sentenceFor(const qvr::Error& error, const Account& account, QVROAuth2Advice advice) {
  if (error.domain() == QVROAuth2ErrorDomain) return protocolSentence(error, account, advice);
  if (error.domain() == QVROAuth2HTTPErrorDomain)
    return httpSentence(error.code(), account, advice);
  if (error.domain() == qvr::NSURLErrorDomain) return transportSentence(error, account);
  if (error.domain() == qvr::NSOSStatusErrorDomain) {
    return keychainSentence(error, keychainKind(), account);
  }
  if (error.domain() == qvr::NSCocoaErrorDomain) return cocoaSentence(error, account);
  return "The command failed (" + withCode(error) + ").";
}

bool needsConsent(const qvr::ErrorPtr& error) {
  return error && error->domain() == QVROAuth2ErrorDomain &&
         findHint(kConsentHints, error->code()) != nullptr;
}

// The command with the configuration that it is to use.
string programWith(const string& path) {
  if (path.empty() || path == defaultConfigurationPath()) return "qvr-oauth2";
  return "qvr-oauth2 --config " + shellQuoted(path);
}

// Says when to try again, where the sentence ends with "try again later." or says nothing.
void addTime(Failure& failure, const ObservedAnswer& answer) {
  constexpr std::string_view kEnding = "ry again later.";
  if (!answer.retryAfterSeconds) return;
  const string time = tryAgainSentence(answer.retryAfterSeconds);
  string& sentence = failure.sentence;
  if (sentence.ends_with(kEnding)) {
    sentence.replace(sentence.size() - kEnding.size(), kEnding.size(), time.substr(1));
  } else {
    sentence += " " + time;
  }
}

}  // namespace

int exitStatusForError(const qvr::ErrorPtr& error) {
  switch (QVROAuth2AdviceForError(error)) {
    case QVROAuth2Advice::kTryAgainLater:
      return kTryAgainLater;
    case QVROAuth2Advice::kSignInAgain:
      return kSignInNeeded;
    case QVROAuth2Advice::kNothingStored:
      return kNothingStored;
    case QVROAuth2Advice::kLasting:
      return kFailed;
  }
  return kFailed;
}

Failure failureForError(const qvr::ErrorPtr& error, const Account& account) {
  if (!error) return {kFailed, "The command failed for an unknown reason."};
  return {exitStatusForError(error), sentenceFor(*error, account, QVROAuth2AdviceForError(error))};
}

// An answer of such a status that holds no protocol error is told by the status, whatever could not
// be read of it.
Failure failureForAnswer(const qvr::ErrorPtr& error, const Account& account,
                         const ObservedAnswer& answer) {
  if (!isTransientStatus(answer.statusCode)) {
    Failure failure = failureForError(error, account);
    if (needsConsent(error)) failure.status = kSignInNeeded;
    if (failure.status == kTryAgainLater) addTime(failure, answer);
    return failure;
  }
  constexpr auto kAdvice = QVROAuth2Advice::kTryAgainLater;
  Failure failure = {kTryAgainLater, error && error->domain() == QVROAuth2ErrorDomain
                                         ? protocolSentence(*error, account, kAdvice)
                                         : httpSentence(answer.statusCode, account, kAdvice)};
  addTime(failure, answer);
  return failure;
}

Failure failureForKeychainStatus(std::int32_t status, std::string_view kind,
                                 const Account& account) {
  const auto error = qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain, status);
  return {exitStatusForError(error), keychainSentence(*error, kind, account)};
}

string shellQuoted(std::string_view text) {
  const auto isPlain = [](unsigned char c) {
    return std::isalnum(c) != 0 || (c != 0 && std::strchr("@%+=:,./_-", c) != nullptr);
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) return string(text);
  string quoted = "'";
  for (const char c : text)
    quoted += c == '\'' ? string("'\\''") : string(1, c);
  return quoted + "'";
}

string commandLine(std::string_view command, const Account& account) {
  const bool isLikeAnOption = account.username.starts_with('-');
  return "`" + programWith(configurationPath()) + " " + string(command) + " " +
         (isLikeAnOption ? "-- " : "") + account.provider + " " + shellQuoted(account.username) +
         "`";
}

string nameOf(const Account& account) {
  return account.username + " at " + account.provider;
}

Failure signInNeeded(const Account& account, const string& reason) {
  return {kSignInNeeded, reason + " Sign in again: " + signInCommand(account)};
}

string signInCommand(const Account& account) {
  return commandLine("sign-in", account);
}

string configCommand(const string& path) {
  return "`" + programWith(path) + " config`";
}

}  // namespace host
