#include "host/Scopes.h"

#include <algorithm>
#include <array>

#include "QVROAuth2Client/QVROAuth2Provider.h"

namespace host {

namespace {

constexpr std::array<std::string_view, 4> kNotRepeated{"openid", "profile", "email",
                                                       "offline_access"};

std::string lowerCase(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

}  // namespace

std::string_view defaultMailScope(std::string_view provider) {
  if (provider == QVROAuth2ProviderGoogle) return "https://mail.google.com/ openid email";
  return "https://outlook.office.com/IMAP.AccessAsUser.All "
         "https://outlook.office.com/POP.AccessAsUser.All "
         "https://outlook.office.com/SMTP.Send openid email offline_access";
}

qvr::TextSet splitScope(std::string_view scope) {
  qvr::TextSet members;
  for (std::size_t space = 0; (space = scope.find(' ')) != std::string_view::npos;) {
    members.emplace(scope.substr(0, space));
    scope.remove_prefix(space + 1);
  }
  members.emplace(scope);
  return members;
}

std::vector<std::string> missingScopes(const qvr::TextSet& requested, const qvr::TextSet& granted) {
  qvr::TextSet known;
  for (const std::string& scope : granted)
    known.insert(lowerCase(scope));
  std::vector<std::string> missing;
  for (const std::string& scope : requested) {
    const std::string name = lowerCase(scope);
    const bool isRepeated =
        std::find(kNotRepeated.begin(), kNotRepeated.end(), name) == kNotRepeated.end();
    if (!scope.empty() && isRepeated && !known.contains(name)) missing.push_back(scope);
  }
  return missing;
}

}  // namespace host
