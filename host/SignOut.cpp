// qvr-oauth2 sign-out: revokes the grant where the provider lets it, and removes the stored record.
#include <optional>
#include <string>
#include <utility>

#include "QVROAuth2Client/QVRGoogleOAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2Error.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "host/AccountLock.h"
#include "host/AccountSubject.h"
#include "host/AnswerObserver.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/Messages.h"
#include "host/PendingRequest.h"
#include "host/Record.h"
#include "host/Signals.h"
#include "host/Wait.h"

namespace host {
namespace {

bool isDamaged(const qvr::Error& error) {
  return error.domain() == qvr::NSCocoaErrorDomain ||
         error.is(qvr::NSOSStatusErrorDomain, qvr::errSecDecode);
}

// Asks the provider to revoke; null when it did.
qvr::ErrorPtr revoke(const std::string& token, const char* hint) {
  const SignalledOutcome<qvr::ErrorPtr> outcome;
  const auto task = QVRGoogleOAuth2PublicClient::init()->taskForRevokingToken(
      token, hint, [outcome](qvr::ErrorPtr error) { outcome.deliver(std::move(error)); });
  task->resume();
  auto result = answerOfPendingRequest(outcome, kRequestDeadlineSeconds);
  if (result) return *result;
  task->cancel();
  return qvr::Error::errorWithDomain(qvr::NSURLErrorDomain, qvr::NSURLErrorTimedOut);
}

// Revoking the refresh token ends the whole grant (RFC 7009 section 2.1).
qvr::ErrorPtr revokeGrant(const QVROAuth2Token& record) {
  if (canBeSent(record.refreshToken())) return revoke(*record.refreshToken(), "refresh_token");
  return revoke(*record.accessToken(), "access_token");
}

Failure kept(Failure failure, const Account& account) {
  failure.sentence += " The token was not revoked and stays stored; " +
                      commandLine("sign-out --local", account) + " removes it without revoking it.";
  return failure;
}

// Revokes at Google. The failure is a reason to keep the record.
std::optional<Failure> signOutAtGoogle(const Account& account,
                                       const qvr::Ref<QVROAuth2Token>& record) {
  if (!canBeSent(record->refreshToken()) && !canBeSent(record->accessToken())) {
    say("The stored record holds no token that can be revoked.");
    return std::nullopt;
  }
  // An item that cannot be changed could not be removed either, and would hold a dead token.
  const qvr::ErrorPtr unchangeable = rewriteRecord(account, record);
  if (unchangeable) return kept(failureForError(unchangeable, account), account);
  const AnswerObserver observer;
  const qvr::ErrorPtr error = revokeGrant(*record);
  if (!error) {
    say("The token was revoked at Google.");
    return std::nullopt;
  }
  const Failure failure = failureForAnswer(error, account, *observer.answer());
  const bool isRefusal = error->domain() == QVROAuth2ErrorDomain;
  if (!isRefusal || failure.status == kTryAgainLater) return kept(failure, account);
  say("Google did not revoke the token, as it does when a token has expired or was revoked before; "
      "see https://myaccount.google.com/permissions for what still has access.");
  return std::nullopt;
}

void sayMicrosoftHasNoRevocation() {
  say("Microsoft offers no way to revoke a token: to end this app's access, remove it at "
      "https://account.microsoft.com under Privacy (personal accounts) or at "
      "https://myapps.microsoft.com (work and school accounts).");
}

// Who signs out needs no advice to sign in first.
Failure failureOf(const qvr::ErrorPtr& error, const Account& account) {
  if (!error->is(qvr::NSOSStatusErrorDomain, qvr::errSecItemNotFound))
    return failureForError(error, account);
  return {kNothingStored, "Nothing is stored for " + printable(account.username) + " at " +
                              account.provider + ", so there is nothing to sign out."};
}

std::optional<Failure> removeItem(const Configuration& configuration, const Account& account) {
  const qvr::ErrorPtr error = removeRecord(account);
  if (error) return failureOf(error, account);
  forgetSubject(configuration.bundleIdentifier, account);
  return std::nullopt;
}

// Revokes what is stored, as far as the provider can. The failure is a reason to keep the record.
std::optional<Failure> revokeStored(const Account& account) {
  qvr::ErrorPtr error;
  const auto record = readRecord(account, &error);
  if (!record && !isDamaged(*error)) return failureOf(error, account);
  if (!record) say("The stored item is damaged, so that its token cannot be revoked.");
  if (account.provider == QVROAuth2ProviderMicrosoft) {
    sayMicrosoftHasNoRevocation();
  } else if (record) {
    return signOutAtGoogle(account, record);
  }
  return std::nullopt;
}

// Under the lock, so that a refresh that is under way elsewhere cannot bring the record back.
std::optional<Failure> revokeAndRemove(const Configuration& configuration, const Account& account,
                                       bool localOnly) {
  const TerminationBlocked blocked;
  const auto lock = AccountLock::acquire(account);
  if (const auto* failure = std::get_if<Failure>(&lock)) return *failure;
  if (!localOnly) {
    if (auto failure = revokeStored(account)) return failure;
  }
  return removeItem(configuration, account);
}

}  // namespace

int signOut(const Configuration& configuration, const Account& account, bool localOnly) {
  if (auto failure = revokeAndRemove(configuration, account, localOnly)) return report(*failure);
  const std::string done = "Signed out " + nameOf(account) + ".";
  return writeOut(printable(done) + "\n") ? kDone : report(cannotWriteOutput());
}

}  // namespace host
