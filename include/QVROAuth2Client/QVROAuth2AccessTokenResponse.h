// The access-token response: a body of the token endpoint (RFC 6749 sections 5.1 and 5.2).
//
// Thread rule: immutable; the class method keeps no state. Any thread.
#pragma once

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "QVROAuth2Client/platform/Value.h"

class QVR_EXPORT QVROAuth2AccessTokenResponse final : public qvr::Object {
 public:
  // accessTokenResponseWithData:response:error:
  // Reads a body. `response` is accepted and not consulted; it may be null.
  //
  // Returns a response, whose members may all be absent: nothing is required here. Or null, with
  // *error set when `error` is not null: the JSON reader's error (NSCocoaErrorDomain 3840) for a
  // body that is not JSON; QVROAuth2ErrorDomain when the body has an "error" member, whatever else
  // it has.
  static qvr::Ref<QVROAuth2AccessTokenResponse> accessTokenResponseWithData(
      const qvr::Data& data, const qvr::HTTPURLResponse* response, qvr::ErrorPtr* error = nullptr);

  // initWithAccessToken:tokenType:expiresIn:refreshToken:scope:
  // A null value is an absent one.
  static qvr::Ref<QVROAuth2AccessTokenResponse> initWithAccessToken(qvr::Value accessToken,
                                                                    qvr::Value tokenType,
                                                                    qvr::Value expiresIn,
                                                                    qvr::Value refreshToken,
                                                                    qvr::Value scope);

  // The members as the server sent them, whatever their JSON type; a null value when absent. Use
  // text() and numberValue() to read them.
  const qvr::Value& accessToken() const noexcept { return accessToken_; }
  const qvr::Value& tokenType() const noexcept { return tokenType_; }
  const qvr::Value& expiresIn() const noexcept { return expiresIn_; }  // seconds
  const qvr::Value& refreshToken() const noexcept { return refreshToken_; }
  const qvr::Value& scope() const noexcept { return scope_; }  // separated by single spaces

 private:
  QVROAuth2AccessTokenResponse(qvr::Value accessToken, qvr::Value tokenType, qvr::Value expiresIn,
                               qvr::Value refreshToken, qvr::Value scope);
  ~QVROAuth2AccessTokenResponse() override;

  const qvr::Value accessToken_;
  const qvr::Value tokenType_;
  const qvr::Value expiresIn_;
  const qvr::Value refreshToken_;
  const qvr::Value scope_;
};
