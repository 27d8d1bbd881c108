#include "src/manager/RefreshedToken.h"

#include <vector>

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "src/platform/World.h"

namespace {

qvr::ErrorPtr missingParametersError(const std::vector<std::string_view>& names) {
  qvr::World& world = qvr::World::current();
  std::string joined;
  for (const std::string_view name : names) {
    if (!joined.empty()) joined += world.localizedString(", ");
    joined += name;
  }
  std::string message(world.localizedString(names.size() == 1
                                                ? "Missing required response parameter: %@"
                                                : "Missing required response parameters: %@"));
  const std::size_t placeholder = message.find("%@");
  if (placeholder != std::string::npos) message.replace(placeholder, 2, joined);
  return qvr::Error::errorWithDomain(
      QVROAuth2ErrorDomain, QVROAuth2ErrorUnknown,
      qvr::Error::UserInfo{{std::string(qvr::NSLocalizedDescriptionKey), message}});
}

}  // namespace

qvr::TextSet scopesFromText(std::string_view scope) {
  qvr::TextSet scopes;
  while (true) {
    const std::size_t end = scope.find(' ');
    scopes.emplace(scope.substr(0, end));
    if (end == std::string_view::npos) return scopes;
    scope.remove_prefix(end + 1);
  }
}

qvr::Ref<QVROAuth2Token> refreshedToken(const QVROAuth2AccessTokenResponse& response,
                                        const QVROAuth2Token& oldToken, qvr::ErrorPtr* error) {
  const qvr::Date now = qvr::World::current().now();
  const qvr::Text accessToken = response.accessToken().text();
  const qvr::Text tokenType = response.tokenType().text();
  const std::optional<double> expiresIn = response.expiresIn().numberValue();
  const qvr::Text refreshToken = response.refreshToken().text();
  const qvr::Text scope = response.scope().text();

  std::vector<std::string_view> missing;
  if (!accessToken) missing.push_back("access_token");
  if (!tokenType) missing.push_back("token_type");
  if (!missing.empty()) {
    *error = missingParametersError(missing);
    return nullptr;
  }
  return QVROAuth2Token::initWithAccessToken(
      accessToken, tokenType, expiresIn ? expiresIn : oldToken.expiresIn(),
      refreshToken ? refreshToken : oldToken.refreshToken(),
      scope ? scopesFromText(*scope) : oldToken.grantedScopes(), now);
}
