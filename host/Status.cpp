// qvr-oauth2 status: what is stored of an account, without its tokens.
#include "host/Command.h"
#include "host/Console.h"
#include "host/Messages.h"
#include "host/Record.h"

namespace host {

int status(const Configuration&, const StatusOptions& options) {
  qvr::ErrorPtr error;
  const auto record = readRecord(options.account, &error);
  if (!record) return report(failureForError(error, options.account));
  return kDone;
}

}  // namespace host
