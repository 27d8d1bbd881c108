// The token record: what the library keeps for one account at one provider.
//
// Thread rule: immutable; any number of threads may read one record.
#pragma once

#include <optional>

#include "QVROAuth2Client/platform/Coder.h"
#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"

class QVR_EXPORT QVROAuth2Token final : public qvr::Object {
 public:
  // initWithAccessToken:tokenType:expiresIn:refreshToken:grantedScopes:creationDate:
  // Every argument may be absent; nothing is checked. `expiresIn` is in seconds from
  // `creationDate`.
  static qvr::Ref<QVROAuth2Token> initWithAccessToken(qvr::TextView accessToken,
                                                      qvr::TextView tokenType,
                                                      std::optional<double> expiresIn,
                                                      qvr::TextView refreshToken,
                                                      std::optional<qvr::TextSet> grantedScopes,
                                                      std::optional<qvr::Date> creationDate);

  const qvr::Text& accessToken() const noexcept { return accessToken_; }
  const qvr::Text& tokenType() const noexcept { return tokenType_; }
  const std::optional<double>& expiresIn() const noexcept { return expiresIn_; }  // seconds
  const qvr::Text& refreshToken() const noexcept { return refreshToken_; }
  const std::optional<qvr::TextSet>& grantedScopes() const noexcept { return grantedScopes_; }
  const std::optional<qvr::Date>& creationDate() const noexcept { return creationDate_; }

  // True from 60 seconds before the computed expiry on. Never for a record without a refresh token
  // or without a lifetime; an absent creation date counts as the reference date. Reads the host's
  // clock at each call.
  bool shouldRefreshToken() const;

  // copyWithZone:
  // The record itself, with one more reference.
  qvr::Ref<QVROAuth2Token> copyWithZone(void* zone = nullptr);

  // supportsSecureCoding
  static bool supportsSecureCoding() noexcept { return true; }

  // encodeWithCoder:
  void encodeWithCoder(qvr::Coder& coder) const;

  // initWithCoder:
  // Missing keys read as absent fields. What a coder rejects it reports itself.
  static qvr::Ref<QVROAuth2Token> initWithCoder(qvr::Coder& coder);

 private:
  QVROAuth2Token(qvr::Text accessToken, qvr::Text tokenType, std::optional<double> expiresIn,
                 qvr::Text refreshToken, std::optional<qvr::TextSet> grantedScopes,
                 std::optional<qvr::Date> creationDate);
  ~QVROAuth2Token() override;

  const qvr::Text accessToken_;
  const qvr::Text tokenType_;
  const std::optional<double> expiresIn_;
  const qvr::Text refreshToken_;
  const std::optional<qvr::TextSet> grantedScopes_;
  const std::optional<qvr::Date> creationDate_;
};
