// qvr-oauth2 accounts: who is signed in, one account a line.
#include <algorithm>
#include <string>
#include <vector>

#include "host/Command.h"
#include "host/Console.h"
#include "host/Messages.h"
#include "host/Record.h"
#include "host/Setup.h"

namespace host {
namespace {

std::string lines(const std::vector<qvr::KeychainItemName>& names) {
  std::vector<std::string> accounts;
  for (const qvr::KeychainItemName& name : names) {
    const std::string_view provider = providerOfService(name.service);
    if (provider.empty()) continue;
    accounts.push_back(std::string(provider) + "\t" + printable(name.account) + "\n");
  }
  std::sort(accounts.begin(), accounts.end());
  std::string text;
  for (const std::string& account : accounts)
    text += account;
  return text;
}

qvr::ErrorPtr errorForStatus(std::int32_t status) {
  return qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain, status);
}

}  // namespace

int accounts(const Configuration& configuration, bool) {
  std::vector<qvr::KeychainItemName> names;
  const std::int32_t status = keychainItems()->list(&names);
  if (status != qvr::errSecSuccess && status != qvr::errSecItemNotFound) {
    return report(failureForError(errorForStatus(status), {}));
  }
  const std::string text = lines(names);
  if (text.empty()) {
    say("No account of " + configuration.bundleIdentifier +
        " is stored. Sign in first: `qvr-oauth2 sign-in PROVIDER USER`");
    return kDone;
  }
  return writeOut(text) ? kDone : report(cannotWriteOutput());
}

}  // namespace host
