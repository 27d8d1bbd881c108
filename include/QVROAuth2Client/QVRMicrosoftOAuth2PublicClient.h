// The client of Microsoft accounts (the Microsoft identity platform, version 2.0 endpoints, tenant
// "common"). Its registration is what the host set with
// QVROAuth2Host::setMicrosoftApplicationIdentifier().
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2PublicClient.h"

class QVR_EXPORT QVRMicrosoftOAuth2PublicClient : public QVROAuth2PublicClient {
 public:
  // init
  static qvr::Ref<QVRMicrosoftOAuth2PublicClient> init();

  // The class itself, for asking its hooks without a client. Immortal.
  static const QVRMicrosoftOAuth2PublicClient& classObject();

  qvr::Text provider() const override;
  qvr::Text customURIScheme() const override;
  qvr::Text redirectURI() const override;
  qvr::Text authorizationURI() const override;
  qvr::Text tokenURI() const override;
  qvr::Text revokeURI() const override;

  // Optional parameters of the authorization, passed on unchecked; absent and empty are not sent.
  // "response_mode" is "query" by default, the others are absent: "prompt", "login_hint" (the
  // account the user should sign in with) and "domain_hint".
  qvr::Text responseMode() const;
  void setResponseMode(qvr::TextView responseMode);
  qvr::Text prompt() const;
  void setPrompt(qvr::TextView prompt);
  qvr::Text loginHint() const;
  void setLoginHint(qvr::TextView loginHint);
  qvr::Text domainHint() const;
  void setDomainHint(qvr::TextView domainHint);

 protected:
  QVRMicrosoftOAuth2PublicClient();
  ~QVRMicrosoftOAuth2PublicClient() override;

  std::string className() const override;
  std::vector<std::string> authorizationURLQueries() const override;

 private:
  struct QVR_HIDDEN Fields;
  const std::unique_ptr<Fields> fields_;
};
