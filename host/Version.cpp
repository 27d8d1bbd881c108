#include "QVROAuth2Client/QVROAuth2Client.h"
#include "host/Command.h"
#include "host/Console.h"

namespace host {

int version() {
  return writeOut("qvr-oauth2 " QVROAUTH2CLIENT_VERSION "\n") ? kDone : kFailed;
}

}  // namespace host
