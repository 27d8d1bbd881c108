#include "host/TokenFormat.h"

namespace host {

std::optional<TokenFormat::Kind> tokenFormatNamed(const std::string& name) {
  if (name == "raw") return TokenFormat::Kind::kRaw;
  if (name == "xoauth2") return TokenFormat::Kind::kXOAuth2;
  if (name == "oauthbearer") return TokenFormat::Kind::kOAuthBearer;
  if (name == "json") return TokenFormat::Kind::kJSON;
  return std::nullopt;
}

std::string formattedToken(const TokenFormat&, const Account&, const QVROAuth2Token& record,
                           qvr::Date) {
  return record.accessToken().value_or("");
}

}  // namespace host
