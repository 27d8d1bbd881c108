#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "src/platform/JSON.h"

namespace {

// Takes a member out of the body. A JSON null counts as absent, and comes out as a null value.
qvr::Value takeMember(qvr::Value::Object& body, std::string_view name) {
  for (qvr::Value::Member& member : body) {
    if (member.first == name) return std::move(member.second);
  }
  return nullptr;
}

qvr::ErrorPtr protocolError(qvr::Value::Object& body, const qvr::Value& error) {
  const qvr::Value description = takeMember(body, "error_description");
  const qvr::Value uri = takeMember(body, "error_uri");
  return QVROAuth2ErrorFromParameters(&error, description.isNull() ? nullptr : &description,
                                      uri.isNull() ? nullptr : &uri);
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
  std::optional<qvr::Value> parsed = qvr::JSONObjectWithData(data, error);
  if (!parsed) return nullptr;
  // A top-level array has no members.
  auto* const object = parsed->as<qvr::Value::Object>();
  qvr::Value::Object body = object != nullptr ? *object : qvr::Value::Object{};

  // An error response, whatever else it holds.
  const qvr::Value errorMember = takeMember(body, "error");
  if (!errorMember.isNull()) {
    if (error != nullptr) *error = protocolError(body, errorMember);
    return nullptr;
  }
  return initWithAccessToken(takeMember(body, "access_token"), takeMember(body, "token_type"),
                             takeMember(body, "expires_in"), takeMember(body, "refresh_token"),
                             takeMember(body, "scope"));
}
