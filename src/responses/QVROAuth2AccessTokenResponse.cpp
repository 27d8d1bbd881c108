#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"

#include <utility>

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "src/platform/JSONMembers.h"

namespace {

constexpr std::string_view kMemberNames[] = {"access_token",      "token_type", "expires_in",
                                             "refresh_token",     "scope",      "error",
                                             "error_description", "error_uri"};

// The member of the body; null when it is not there, or is a JSON null, which counts as absent.
const qvr::Value* member(const qvr::Value& body, std::string_view name) {
  const qvr::Value* const found = body.find(name);
  return found != nullptr && !found->isNull() ? found : nullptr;
}

// The same, taken out of the body; a null value for an absent one.
qvr::Value takenMember(qvr::Value& body, std::string_view name) {
  qvr::Value* const found = body.find(name);
  return found != nullptr ? std::move(*found) : qvr::Value();
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
  std::optional<qvr::Value> body = qvr::JSONMembersWithData(data, kMemberNames, error);
  if (!body) return nullptr;

  // An error response, whatever else it holds.
  if (const qvr::Value* const errorMember = member(*body, "error")) {
    if (error != nullptr) {
      *error = QVROAuth2ErrorFromParameters(errorMember, member(*body, "error_description"),
                                            member(*body, "error_uri"));
    }
    return nullptr;
  }
  return initWithAccessToken(takenMember(*body, "access_token"), takenMember(*body, "token_type"),
                             takenMember(*body, "expires_in"), takenMember(*body, "refresh_token"),
                             takenMember(*body, "scope"));
}
