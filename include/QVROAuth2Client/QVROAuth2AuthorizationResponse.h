// The authorization response: what the redirect URL says (RFC 6749 section 4.1.2).
//
// Thread rule: immutable; the class method keeps no state. Any thread.
#pragma once

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URL.h"

class QVR_EXPORT QVROAuth2AuthorizationResponse final : public qvr::Object {
 public:
  // authorizationResponseWithRedirectURL:state:error:
  // Reads a redirect URL that matches the redirect URI of one of the two providers.
  //
  // Returns a response, whose code may be absent (check it); or null, with *error set when `error`
  // is not null: NSURLErrorDomain -1100 for a URL that is not ours, QVROAuth2ErrorDomain for an
  // "error" in the query. *state is written for every URL that is ours, with nothing when it
  // carries no state, and left alone for others. Neither is compared with anything here.
  static qvr::Ref<QVROAuth2AuthorizationResponse> authorizationResponseWithRedirectURL(
      const qvr::URL& redirectURL, qvr::Text* state, qvr::ErrorPtr* error = nullptr);

  // initWithCode:
  static qvr::Ref<QVROAuth2AuthorizationResponse> initWithCode(qvr::TextView code);

  // The authorization code; absent when the redirect carried none. A secret.
  const qvr::Text& code() const noexcept { return code_; }

 private:
  explicit QVROAuth2AuthorizationResponse(qvr::TextView code) : code_(code.text()) {}
  ~QVROAuth2AuthorizationResponse() override;

  const qvr::Text code_;
};
