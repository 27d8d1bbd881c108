#include "host/IdentityToken.h"

#include <strings.h>

#include <algorithm>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/platform/JSON.h"
#include "host/Messages.h"
#include "host/Secrets.h"

namespace host {
namespace {

// No address is longer (RFC 5321 section 4.5.3.1).
constexpr std::size_t kLongestName = 64 + 1 + 255;

// The members of a JSON object that are texts, of those asked for; empty text for the others.
std::vector<std::string> textMembers(const qvr::Data& json,
                                     std::initializer_list<std::string_view> keys) {
  std::vector<std::string> texts(keys.size());
  const std::optional<qvr::Value> object = qvr::JSONObjectWithData(json, nullptr);
  if (!object) return texts;
  std::ranges::transform(keys, texts.begin(), [&object](std::string_view key) {
    const qvr::Value* const member = object->find(key);
    return member != nullptr ? member->text().value_or("") : "";
  });
  return texts;
}

// The second of the three parts of a signed token (RFC 7515 section 7.1).
std::optional<qvr::Data> payloadOf(std::string_view token) {
  const std::size_t first = token.find('.');
  const std::size_t second = token.find('.', first + 1);
  const bool hasThreeParts = first != std::string_view::npos && second != std::string_view::npos &&
                             token.find('.', second + 1) == std::string_view::npos;
  if (!hasThreeParts) return std::nullopt;
  return qvr_initWithBase64URLEncodedString(token.substr(first + 1, second - first - 1),
                                            QVROAuth2Base64DecodingStrict);
}

bool isSameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string howToMend(const Account& account) {
  const bool isMicrosoft = account.provider == QVROAuth2ProviderMicrosoft;
  const std::string signIn =
      commandLine(isMicrosoft ? "sign-in --prompt select_account" : "sign-in", account);
  return "If they are not, run " + commandLine("sign-out --local", account) + " and then " +
         signIn + ", and choose " + account.username + " in the browser.";
}

}  // namespace

std::optional<std::string> idTokenInAnswer(const qvr::Data& body) {
  std::string token = textMembers(body, {"id_token"}).front();
  if (token.empty()) return std::nullopt;
  keepSecret(token);
  return token;
}

std::vector<std::string> accountNamesInIDToken(std::string_view token) {
  const auto payload = payloadOf(token);
  if (!payload) return {};
  auto names = textMembers(*payload, {"email", "preferred_username", "upn"});
  std::erase_if(names,
                [](const std::string& name) { return name.empty() || name.size() > kLongestName; });
  return names;
}

std::optional<std::string> subjectInIDToken(std::string_view token) {
  const auto payload = payloadOf(token);
  if (!payload) return std::nullopt;
  const auto members = textMembers(*payload, {"iss", "sub"});
  if (members[0].empty() || members[1].empty()) return std::nullopt;
  std::string subject = std::to_string(members[0].size()) + " " + members[0] + " " + members[1];
  if (subject.find('\0') != std::string::npos) return std::nullopt;  // it would end what is hashed
  return subject;
}

std::optional<std::string> warningAboutAccount(const std::vector<std::string>& names,
                                               const Account& account) {
  const bool isSame =
      names.empty() || std::any_of(names.begin(), names.end(), [&account](const auto& name) {
        return isSameName(name, account.username);
      });
  if (isSame) return std::nullopt;
  return "Warning: the browser signed in " + names.front() + ", but " + account.username +
         " was asked for. Mail servers refuse the token for " + account.username +
         " unless both are the same mailbox. " + howToMend(account);
}

}  // namespace host
