#include "QVROAuth2Client/QVROAuth2Error.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "src/platform/JSONMembers.h"
#include "src/platform/Log.h"

namespace {

// The wire strings of codes 1 to 18, in the order in which they are compared.
constexpr std::array<std::string_view, 18> kWireStrings = {
    "invalid_request",
    "unauthorized_client",
    "access_denied",
    "unsupported_response_type",
    "invalid_scope",
    "server_error",
    "temporarily_unavailable",
    "invalid_client",
    "invalid_grant",
    "unsupported_grant_type",
    "admin_policy_enforced",
    "disallowed_useragent",
    "org_internal",
    "redirect_uri_mismatch",
    "invalid_resource",
    "login_required",
    "interaction_required",
    "consent_required",
};

// The members of an error response (RFC 6749 section 5.2).
constexpr std::string_view kMemberNames[] = {"error", "error_description", "error_uri"};

bool isOneOf(std::int64_t code, std::initializer_list<std::int64_t> codes) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

QVROAuth2Advice adviceForProtocolCode(std::int64_t code) {
  if (isOneOf(code, {QVROAuth2ErrorInvalidGrant, QVROAuth2ErrorLoginRequired,
                     QVROAuth2ErrorInteractionRequired, QVROAuth2ErrorConsentRequired})) {
    return QVROAuth2Advice::kSignInAgain;
  }
  return isOneOf(code, {QVROAuth2ErrorServerError, QVROAuth2ErrorTemporarilyUnavailable})
             ? QVROAuth2Advice::kTryAgainLater
             : QVROAuth2Advice::kLasting;
}

QVROAuth2Advice adviceForKeychainStatus(std::int64_t status) {
  if (status == qvr::errSecItemNotFound) return QVROAuth2Advice::kNothingStored;
  return isOneOf(status, {qvr::errSecNotAvailable, qvr::errSecInteractionNotAllowed})
             ? QVROAuth2Advice::kTryAgainLater
             : QVROAuth2Advice::kLasting;
}

bool isTransient(const qvr::Error& error) {
  if (error.domain() == QVROAuth2HTTPErrorDomain) {
    return error.code() == 429 || (error.code() >= 500 && error.code() <= 599);
  }
  if (error.domain() == qvr::NSCocoaErrorDomain) {
    return error.code() == qvr::NSPropertyListReadCorruptError;
  }
  return error.domain() == qvr::NSURLErrorDomain &&
         isOneOf(error.code(),
                 {qvr::NSURLErrorUnknown, qvr::NSURLErrorTimedOut, qvr::NSURLErrorCannotFindHost,
                  qvr::NSURLErrorCannotConnectToHost, qvr::NSURLErrorNetworkConnectionLost,
                  qvr::NSURLErrorNotConnectedToInternet});
}

}  // namespace

QVROAuth2ErrorCode QVROAuth2ErrorCodeFromString(qvr::TextView string) {
  if (string.view().empty()) return QVROAuth2ErrorUnknown;
  const auto found = std::find(kWireStrings.begin(), kWireStrings.end(), string.view());
  if (found != kWireStrings.end()) {
    return static_cast<QVROAuth2ErrorCode>(found - kWireStrings.begin() + 1);
  }
  qvr::logLine("error: \"" + std::string(string.view()) + "\"");
  return QVROAuth2ErrorUnknown;
}

qvr::TextView QVROAuth2ErrorStringFromCode(QVROAuth2ErrorCode code) {
  const auto value = static_cast<std::int64_t>(code);
  if (value < 1 || value > static_cast<std::int64_t>(kWireStrings.size())) return nullptr;
  return kWireStrings[static_cast<std::size_t>(value - 1)];
}

qvr::ErrorPtr QVROAuth2ErrorFromParameters(const qvr::Value* error,
                                           const qvr::Value* errorDescription,
                                           const qvr::Value* errorURI) {
  const qvr::Text name = error != nullptr ? error->text() : std::nullopt;
  const QVROAuth2ErrorCode code = QVROAuth2ErrorCodeFromString(name);
  qvr::Error::UserInfo userInfo;
  if (errorDescription != nullptr) {
    userInfo.emplace_back(qvr::NSLocalizedDescriptionKey, *errorDescription);
  }
  if (errorURI != nullptr) userInfo.emplace_back(QVROAuth2ErrorURIKey, *errorURI);
  if (userInfo.empty()) return qvr::Error::errorWithDomain(QVROAuth2ErrorDomain, code);
  return qvr::Error::errorWithDomain(QVROAuth2ErrorDomain, code, std::move(userInfo));
}

qvr::ErrorPtr QVROAuth2ErrorFromJSONData(const qvr::Data& data) {
  qvr::ErrorPtr readerError;
  const std::optional<qvr::Value> body = qvr::JSONMembersWithData(data, kMemberNames, &readerError);
  if (!body) return readerError;
  return QVROAuth2ErrorFromParameters(body->find("error"), body->find("error_description"),
                                      body->find("error_uri"));
}

QVROAuth2Advice QVROAuth2AdviceForError(const qvr::ErrorPtr& error) {
  if (!error) return QVROAuth2Advice::kLasting;
  if (error->domain() == QVROAuth2ErrorDomain) return adviceForProtocolCode(error->code());
  if (error->domain() == qvr::NSOSStatusErrorDomain) return adviceForKeychainStatus(error->code());
  return isTransient(*error) ? QVROAuth2Advice::kTryAgainLater : QVROAuth2Advice::kLasting;
}
