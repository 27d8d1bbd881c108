#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "src/platform/JSON.h"

namespace {

// The member of the body; null when it is not there, or is a JSON null, which counts as absent.
const qvr::Value* member(const qvr::Value& body, std::string_view name) {
  const qvr::Value* const found = body.find(name);
  return found != nullptr && !found->isNull() ? found : nullptr;
}

qvr::Value copyOfMember(const qvr::Value& body, std::string_view name) {
  const qvr::Value* const found = member(body, name);
  return found != nullptr ? *found : qvr::Value();
}

}  // namespace

QVROAuth2AccessTokenResponse::QVROAuth2AccessTokenResponse(qvr::Value accessToken,
                                                           qvr::Value tokenType,
                                                           qvr::Value expiresIn,
                                                           qvr::Value refreshToken,
                                                           qvr::Value scope)
    : accessToken_(std::move(accessToken)),
      tokenType_(std::move(tokenType)),
      expiresIn_(std::move(expiresIn)),
      refreshToken_(std::move(refreshToken)),
      scope_(std::move(scope)) {}

QVROAuth2AccessTokenResponse::~QVROAuth2AccessTokenResponse() = default;

qvr::Ref<QVROAuth2AccessTokenResponse> QVROAuth2AccessTokenResponse::initWithAccessToken(
    qvr::Value accessToken, qvr::Value tokenType, qvr::Value expiresIn, qvr::Value refreshToken,
    qvr::Value scope) {
  return qvr::Ref<QVROAuth2AccessTokenResponse>::adopt(new QVROAuth2AccessTokenResponse(
      std::move(accessToken), std::move(tokenType), std::move(expiresIn), std::move(refreshToken),
      std::move(scope)));
}

qvr::Ref<QVROAuth2AccessTokenResponse> QVROAuth2AccessTokenResponse::accessTokenResponseWithData(
    const qvr::Data& data, const qvr::HTTPURLResponse*, qvr::ErrorPtr* error) {
  // A top-level array has no members.
  const std::optional<qvr::Value> body = qvr::JSONObjectWithData(data, error);
  if (!body) return nullptr;

  // An error response, whatever else it holds.
  if (const qvr::Value* const errorMember = member(*body, "error")) {
    if (error != nullptr) {
      *error = QVROAuth2ErrorFromParameters(errorMember, member(*body, "error_description"),
                                            member(*body, "error_uri"));
    }
    return nullptr;
  }
  return initWithAccessToken(copyOfMember(*body, "access_token"), copyOfMember(*body, "token_type"),
                             copyOfMember(*body, "expires_in"),
                             copyOfMember(*body, "refresh_token"), copyOfMember(*body, "scope"));
}
