// The client of Google accounts. Its registration is what the host set with
// QVROAuth2Host::setGoogleRegistration().
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2PublicClient.h"

class QVR_EXPORT QVRGoogleOAuth2PublicClient : public QVROAuth2PublicClient {
 public:
  // init
  static qvr::Ref<QVRGoogleOAuth2PublicClient> init();

  // The class itself, for asking its hooks without a client. Immortal.
  static const QVRGoogleOAuth2PublicClient& classObject();

  qvr::Text provider() const override;
  qvr::Text customURIScheme() const override;
  qvr::Text redirectURI() const override;
  qvr::Text authorizationURI() const override;
  qvr::Text tokenURI() const override;
  qvr::Text revokeURI() const override;

  // "login_hint": the account the user should sign in with. Absent by default; absent and empty are
  // not sent.
  qvr::Text loginHint() const;
  void setLoginHint(qvr::TextView loginHint);

 protected:
  QVRGoogleOAuth2PublicClient();
  ~QVRGoogleOAuth2PublicClient() override;

  std::string className() const override;
  std::vector<std::string> authorizationURLQueries() const override;

 private:
  struct QVR_HIDDEN Fields;
  const std::unique_ptr<Fields> fields_;
};
