// qvr-oauth2 token: the access token of an account, refreshed in time, and nothing else on standard
// output.
#include <string>

#include "host/Command.h"
#include "host/Console.h"
#include "host/Messages.h"
#include "host/Record.h"
#include "host/RecordProblems.h"
#include "host/RecordRefresh.h"
#include "host/Setup.h"
#include "host/Signals.h"
#include "host/Steps.h"

namespace host {
namespace {

using Record = qvr::Ref<QVROAuth2Token>;

// The record whose token is to be printed.
RecordOrFailure usableRecord(const Configuration& configuration, const TokenOptions& options) {
  const TerminationBlocked blocked;
  qvr::ErrorPtr error;
  const Record record = readRecord(options.account, &error);
  if (!record) return failureForError(error, options.account);
  if (isDue(*record, options)) {
    step("the token is due for a refresh");
    return refreshedRecord(configuration, options, record);
  }
  if (auto failure = expiryProblem(options.account, *record, now())) return *failure;
  return record;
}

int print(const TokenOptions& options, const QVROAuth2Token& record) {
  if (auto failure = printingProblem(options.account, record)) return report(*failure);
  const std::string text = formattedToken(options.format, options.account, record, now());
  return writeOut(text + "\n") ? kDone : report(cannotWriteOutput());
}

}  // namespace

int token(const Configuration& configuration, const TokenOptions& options) {
  const RecordOrFailure result = usableRecord(configuration, options);
  if (const auto* failure = std::get_if<Failure>(&result)) return report(*failure);
  return print(options, *std::get<Record>(result));
}

}  // namespace host
