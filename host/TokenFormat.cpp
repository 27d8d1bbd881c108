#include "host/TokenFormat.h"

#include "host/Base64.h"
#include "host/DateText.h"
#include "host/JSONWriting.h"
#include "host/RecordFacts.h"

namespace host {
namespace {

// Ends every pair of both SASL mechanisms, and the whole.
constexpr char kSeparator = '\x01';

std::string pair(const std::string& name, const std::string& value) {
  return name + "=" + value + kSeparator;
}

std::string bearerPair(const std::string& token) {
  return pair("auth", "Bearer " + token) + kSeparator;
}

// A user name in the header of a GS2 mechanism (RFC 5801 section 4, "saslname").
std::string saslName(const std::string& username) {
  std::string name;
  for (const char c : username) {
    if (c == ',')
      name += "=2C";
    else if (c == '=')
      name += "=3D";
    else
      name += c;
  }
  return name;
}

std::string xoauth2(const std::string& username, const std::string& token) {
  return base64(pair("user", username) + bearerPair(token));
}

std::string oauthBearer(const TokenFormat& format, const std::string& username,
                        const std::string& token) {
  std::string response = "n,a=" + saslName(username) + "," + kSeparator;
  if (!format.host.empty()) response += pair("host", format.host);
  if (format.port != 0) response += pair("port", std::to_string(format.port));
  return base64(response + bearerPair(token));
}

std::string json(const Account& account, const QVROAuth2Token& record, const std::string& token,
                 qvr::Date now) {
  const auto expiry = expiryDate(record);
  return jsonObject({{"provider", jsonString(account.provider)},
                     {"user", jsonString(account.username)},
                     {"access_token", jsonString(token)},
                     {"token_type", jsonStringOrNull(record.tokenType())},
                     {"expires_at", expiry ? jsonString(rfc3339(*expiry)) : "null"},
                     {"expires_in", jsonNumber(secondsUntilExpiry(record, now))},
                     {"scopes", jsonStrings(scopesOf(record))}});
}

}  // namespace

std::optional<TokenFormat::Kind> tokenFormatNamed(const std::string& name) {
  if (name == "raw") return TokenFormat::Kind::kRaw;
  if (name == "xoauth2") return TokenFormat::Kind::kXOAuth2;
  if (name == "oauthbearer") return TokenFormat::Kind::kOAuthBearer;
  if (name == "json") return TokenFormat::Kind::kJSON;
  return std::nullopt;
}

std::string formattedToken(const TokenFormat& format, const Account& account,
                           const QVROAuth2Token& record, qvr::Date now) {
  const std::string token = record.accessToken().value_or("");
  switch (format.kind) {
    case TokenFormat::Kind::kRaw:
      return token;
    case TokenFormat::Kind::kXOAuth2:
      return xoauth2(account.username, token);
    case TokenFormat::Kind::kOAuthBearer:
      return oauthBearer(format, account.username, token);
    case TokenFormat::Kind::kJSON:
      return json(account, record, token, now);
  }
  return token;
}

}  // namespace host
