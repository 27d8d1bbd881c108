// qvr-oauth2 status: what is stored of an account, without its tokens. Nothing is asked of anybody
// but the keychain, and nothing is changed.
#include <string>
#include <vector>

#include "host/Command.h"
#include "host/Console.h"
#include "host/DateText.h"
#include "host/JSONWriting.h"
#include "host/Keychains.h"
#include "host/Messages.h"
#include "host/Record.h"
#include "host/RecordFacts.h"
#include "host/RecordProblems.h"
#include "host/RecordRefresh.h"
#include "host/Secrets.h"
#include "host/Setup.h"
#include "host/ShownText.h"

namespace host {
namespace {

constexpr std::size_t kLabelWidth = 15;
constexpr const char* kNotSaid = "the provider never says";

bool isRefreshDue(const QVROAuth2Token& record) {
  return isDue(record, TokenOptions{});
}

// What `token`, without options, would fail with before it asks anybody.
std::optional<Failure> servingProblem(const Configuration& configuration, const Account& account,
                                      const QVROAuth2Token& record) {
  if (isRefreshDue(record)) return refreshProblem(configuration, account, record);
  if (auto failure = expiryProblem(account, record, now())) return failure;
  return printingProblem(account, record);
}

std::string line(std::string label, std::string_view value) {
  label += ":";
  label.resize(kLabelWidth, ' ');
  return label + shown(value) + "\n";
}

std::string expiryText(const QVROAuth2Token& record) {
  const auto date = expiryDate(record);
  const auto seconds = secondsUntilExpiry(record, now());
  if (!date || !seconds) return kNotSaid;
  return rfc3339(*date) + ", " + relativeTime(static_cast<double>(*seconds));
}

std::string scopesText(const QVROAuth2Token& record) {
  std::string text;
  for (const std::string& scope : scopesOf(record))
    text += (text.empty() ? "" : " ") + scope;
  return text.empty() ? kNotSaid : text;
}

std::string textOf(const Account& account, const QVROAuth2Token& record) {
  return line("Provider", account.provider) + line("User", account.username) +
         line("Kept in", keychainName(keychainKind())) +
         line("Token type", record.tokenType().value_or(kNotSaid)) +
         line(hasExpired(record, now()) ? "Expired" : "Expires", expiryText(record)) +
         line("Refresh due", isRefreshDue(record) ? "yes, the next `token` refreshes it" : "no") +
         line("Refresh token", hasRefreshToken(record) ? "stored" : "none") +
         line("Scopes", scopesText(record));
}

// A server may have written a token into any of the texts.
std::string safeString(std::string_view text) {
  return jsonString(withoutSecrets(text));
}

std::string jsonOf(const Account& account, const QVROAuth2Token& record) {
  const auto expiry = expiryDate(record);
  std::vector<std::string> scopes;
  for (const std::string& scope : scopesOf(record))
    scopes.push_back(safeString(scope));
  return jsonObject({{"provider", safeString(account.provider)},
                     {"user", safeString(account.username)},
                     {"keychain", safeString(keychainKind())},
                     {"token_type", record.tokenType() ? safeString(*record.tokenType()) : "null"},
                     {"expires_at", expiry ? jsonString(rfc3339(*expiry)) : "null"},
                     {"expires_in", jsonNumber(secondsUntilExpiry(record, now()))},
                     {"refresh_due", jsonBoolean(isRefreshDue(record))},
                     {"refresh_token_stored", jsonBoolean(hasRefreshToken(record))},
                     {"scopes", jsonArray(scopes)}}) +
         "\n";
}

}  // namespace

int status(const Configuration& configuration, const StatusOptions& options) {
  const Account& account = options.account;
  qvr::ErrorPtr error;
  const auto record = readRecord(account, &error);
  if (!record) return report(failureForError(error, account));
  if (!writeOut(options.asJSON ? jsonOf(account, *record) : textOf(account, *record))) {
    return report(cannotWriteOutput());
  }
  const auto failure = servingProblem(configuration, account, *record);
  return failure ? report(*failure) : kDone;
}

}  // namespace host
