// qvr-oauth2 accounts: who is signed in, one account a line or as one array.
#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "host/Command.h"
#include "host/Console.h"
#include "host/JSONWriting.h"
#include "host/Messages.h"
#include "host/Record.h"
#include "host/Setup.h"

namespace host {
namespace {

std::vector<Account> accountsAmong(const std::vector<qvr::KeychainItemName>& names) {
  std::vector<Account> accounts;
  for (const qvr::KeychainItemName& name : names) {
    const std::string_view provider = providerOfService(name.service);
    if (!provider.empty()) accounts.push_back({std::string(provider), name.account});
  }
  std::sort(accounts.begin(), accounts.end(), [](const Account& a, const Account& b) {
    return std::tie(a.provider, a.username) < std::tie(b.provider, b.username);
  });
  return accounts;
}

std::string linesOf(const std::vector<Account>& accounts) {
  std::string text;
  for (const Account& account : accounts)
    text += account.provider + "\t" + printable(account.username) + "\n";
  return text;
}

std::string jsonOf(const std::vector<Account>& accounts) {
  std::vector<std::string> objects;
  for (const Account& account : accounts) {
    objects.push_back(jsonObject(
        {{"provider", jsonString(account.provider)}, {"user", jsonString(account.username)}}));
  }
  return jsonArray(objects) + "\n";
}

qvr::ErrorPtr errorForStatus(std::int32_t status) {
  return qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain, status);
}

}  // namespace

int accounts(const Configuration& configuration, bool asJSON) {
  std::vector<qvr::KeychainItemName> names;
  const std::int32_t status = keychainItems()->list(&names);
  if (status != qvr::errSecSuccess && status != qvr::errSecItemNotFound) {
    return report(failureForError(errorForStatus(status), {}));
  }
  const std::vector<Account> accounts = accountsAmong(names);
  if (accounts.empty()) {
    say("No account of " + configuration.bundleIdentifier +
        " is stored. Sign in first: `qvr-oauth2 sign-in PROVIDER USER`");
  }
  return writeOut(asJSON ? jsonOf(accounts) : linesOf(accounts)) ? kDone
                                                                 : report(cannotWriteOutput());
}

}  // namespace host
