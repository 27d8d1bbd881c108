#include "QVROAuth2Client/QVROAuth2Client.h"
#include "host/Command.h"
#include "host/Console.h"

namespace host {

int version() {
  const bool written = writeOut("qvr-oauth2 " QVROAUTH2CLIENT_VERSION "\n");
  return written ? kDone : report(cannotWriteOutput());
}

}  // namespace host
