// The back channel: code exchange, refresh and revocation (RFC 6749 sections 4.1.3 and 6, RFC
// 7009).

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "QVROAuth2Client/platform/Exception.h"
#include "src/client/FormEncoding.h"
#include "src/platform/Unicode.h"

namespace {

// The POST request for a form; absent when the endpoint yields no URL, and then the form is not
// built.
template <class MakeParameters>
std::optional<qvr::URLRequest> formRequest(const qvr::Text& endpoint,
                                           MakeParameters makeParameters) {
  // An empty text is a URL of its own, but no endpoint.
  if (!endpoint || endpoint->empty()) return std::nullopt;
  std::optional<qvr::URL> url = qvr::URL::URLWithString(endpoint);
  if (!url) return std::nullopt;
  qvr::URLRequest request(*std::move(url));
  for (const std::string& parameter : makeParameters()) {
    if (!request.HTTPBody.empty()) request.HTTPBody.push_back('&');
    request.HTTPBody.insert(request.HTTPBody.end(), parameter.begin(), parameter.end());
  }
  request.HTTPMethod = "POST";
  request.addValue("application/json", "Accept");
  request.addValue("application/x-www-form-urlencoded; charset=utf-8", "Content-Type");
  return request;
}

qvr::URLRequest required(std::optional<qvr::URLRequest> request, std::string_view method) {
  if (request) return *std::move(request);
  throw qvr::InternalInconsistencyException("*** -[QVROAuth2PublicClient " + std::string(method) +
                                            "]: nil request");
}

qvr::ErrorPtr httpError(std::int64_t status, qvr::Error::UserInfo userInfo) {
  return qvr::Error::errorWithDomain(QVROAuth2HTTPErrorDomain, status, std::move(userInfo));
}

bool isClientError(std::int64_t status) {
  return status >= 400 && status <= 499;
}

qvr::DataTaskCompletionHandler tokenCompletion(QVROAuth2AccessTokenCompletionHandler handler) {
  return [handler = std::move(handler)](std::optional<qvr::Data> data,
                                        const qvr::HTTPURLResponse* response,
                                        const qvr::ErrorPtr& transportError) {
    if (!data) {
      if (handler) handler(nullptr, transportError);
      return;
    }
    const std::int64_t status = response->statusCode;
    if (status == 200 || isClientError(status)) {
      qvr::ErrorPtr error;
      auto parsed =
          QVROAuth2AccessTokenResponse::accessTokenResponseWithData(*data, response, &error);
      handler(std::move(parsed), std::move(error));
      return;
    }
    handler(nullptr,
            httpError(status, {{std::string(qvr::NSLocalizedDescriptionKey),
                                response->localizedStringForStatusCode(status)},
                               {std::string(QVROAuth2HTTPResponseDataKey), *std::move(data)}}));
  };
}

// The body as text, or the status's reason when it is none. (Unlike a failed token request's, the
// error of a failed revocation describes itself by what the server wrote.)
std::string revocationFailureText(const qvr::Data& body, std::int64_t status) {
  std::string text(body.begin(), body.end());
  if (qvr::isUTF8(text)) return text;
  return qvr::HTTPURLResponse::localizedStringForStatusCode(status);
}

qvr::DataTaskCompletionHandler revocationCompletion(QVROAuth2RevocationCompletionHandler handler) {
  return [handler = std::move(handler)](const std::optional<qvr::Data>& data,
                                        const qvr::HTTPURLResponse* response,
                                        const qvr::ErrorPtr& transportError) {
    if (!data) {
      if (handler) handler(transportError);
      return;
    }
    const std::int64_t status = response->statusCode;
    if (status == 200) return handler(nullptr);
    if (isClientError(status)) return handler(QVROAuth2ErrorFromJSONData(*data));
    handler(httpError(status, {{std::string(qvr::NSLocalizedDescriptionKey),
                                revocationFailureText(*data, status)}}));
  };
}

}  // namespace

void QVROAuth2PublicClient::addFormCredentials(std::vector<std::string>& parameters) const {
  parameters.push_back(formParameter("client_id", clientIdentifier()));
  if (clientSecret()) parameters.push_back(formParameter("client_secret", clientSecret()));
}

std::vector<std::string>
QVROAuth2PublicClient::formParametersForRequestingAccessTokenWithAuthorizationCode(
    qvr::TextView code) const {
  std::vector<std::string> parameters;
  addFormCredentials(parameters);
  parameters.push_back(formParameter("code", code));
  if (const qvr::Text verifier = codeVerifier()) {
    parameters.push_back(formParameter("code_verifier", verifier));
  }
  parameters.push_back(formParameter("grant_type", "authorization_code"));
  parameters.push_back(formParameter("redirect_uri", redirectURI()));
  return parameters;
}

std::optional<qvr::URLRequest> QVROAuth2PublicClient::accessTokenRequestWithAuthorizationCode(
    qvr::TextView code) const {
  return formRequest(tokenURI(), [&] {
    return formParametersForRequestingAccessTokenWithAuthorizationCode(code);
  });
}

qvr::Ref<qvr::URLSessionDataTask>
QVROAuth2PublicClient::taskForRequestingAccessTokenWithAuthorizationCode(
    qvr::TextView code, QVROAuth2AccessTokenCompletionHandler completionHandler) const {
  qvr::URLRequest request =
      required(accessTokenRequestWithAuthorizationCode(code),
               "taskForRequestingAccessTokenWithAuthorizationCode:completionHandler:");
  return urlSession()->dataTask(std::move(request), tokenCompletion(std::move(completionHandler)));
}

std::vector<std::string>
QVROAuth2PublicClient::formParametersForRefreshingAccessTokenWithRefreshToken(
    qvr::TextView refreshToken) const {
  std::vector<std::string> parameters;
  addFormCredentials(parameters);
  parameters.push_back(formParameter("refresh_token", refreshToken));
  parameters.push_back(formParameter("grant_type", "refresh_token"));
  return parameters;
}

std::optional<qvr::URLRequest> QVROAuth2PublicClient::refreshAccessTokenRequestWithRefreshToken(
    qvr::TextView refreshToken) const {
  return formRequest(tokenURI(), [&] {
    return formParametersForRefreshingAccessTokenWithRefreshToken(refreshToken);
  });
}

qvr::Ref<qvr::URLSessionDataTask>
QVROAuth2PublicClient::taskForRefreshingAccessTokenWithRefreshToken(
    qvr::TextView refreshToken, QVROAuth2AccessTokenCompletionHandler completionHandler) const {
  qvr::URLRequest request =
      required(refreshAccessTokenRequestWithRefreshToken(refreshToken),
               "taskForRefreshingAccessTokenWithRefreshToken:completionHandler:");
  return urlSession()->dataTask(std::move(request), tokenCompletion(std::move(completionHandler)));
}

std::vector<std::string> QVROAuth2PublicClient::formParametersForRevokingToken(
    qvr::TextView token, qvr::TextView tokenTypeHint) const {
  std::vector<std::string> parameters = {formParameter("token", token)};
  if (tokenTypeHint.has_value()) {
    parameters.push_back(formParameter("token_type_hint", tokenTypeHint));
  }
  return parameters;
}

std::optional<qvr::URLRequest> QVROAuth2PublicClient::tokenRevocationRequestWithToken(
    qvr::TextView token, qvr::TextView tokenTypeHint) const {
  return formRequest(revokeURI(),
                     [&] { return formParametersForRevokingToken(token, tokenTypeHint); });
}

qvr::Ref<qvr::URLSessionDataTask> QVROAuth2PublicClient::taskForRevokingToken(
    qvr::TextView token, qvr::TextView tokenTypeHint,
    QVROAuth2RevocationCompletionHandler completionHandler) const {
  qvr::URLRequest request = required(tokenRevocationRequestWithToken(token, tokenTypeHint),
                                     "taskForRevokingToken:withTokenTypeHint:completionHandler:");
  return urlSession()->dataTask(std::move(request),
                                revocationCompletion(std::move(completionHandler)));
}
