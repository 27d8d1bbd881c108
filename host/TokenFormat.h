// The forms in which `token` prints an access token.
#pragma once

#include <optional>
#include <string>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/platform/Date.h"
#include "host/Account.h"

namespace host {

struct TokenFormat {
  enum class Kind {
    kRaw,          // the token alone
    kXOAuth2,      // the initial response of SASL XOAUTH2, in base64
    kOAuthBearer,  // the initial response of SASL OAUTHBEARER (RFC 7628 section 3.1), in base64
    kJSON,         // an object: the token, its type, expiry and scopes, and the account
  };
  Kind kind = Kind::kRaw;

  // The server to which the token is sent, for OAUTHBEARER.
  std::string host{};
  int port = 0;
};

// The kind by the name that --format takes: "raw", "xoauth2", "oauthbearer" or "json".
std::optional<TokenFormat::Kind> tokenFormatNamed(const std::string& name);

// What is to be printed, without the newline, for a record whose access token is one line of
// visible characters. It holds the token: it is for standard output alone.
std::string formattedToken(const TokenFormat& format, const Account& account,
                           const QVROAuth2Token& record, qvr::Date now);

}  // namespace host
