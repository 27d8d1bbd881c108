// A session that sends a token refresh once more when its connection was lost before any byte of
// the answer had arrived, as happens after the machine wakes up: a server or a router on the way
// has forgotten the connection.
//
// A request that may have been acted upon is not repeated unless that does no harm (RFC 9110
// section 9.2.2). A second refresh does none that is not done already: had the server rotated the
// token in an answer that is lost, the stored one would be all there is, and the next command would
// send it all the same. An authorization code is never sent twice, since that can revoke what it
// gave (RFC 6749 section 4.1.2); nor is a revocation, which the user can ask for again.
#pragma once

#include "QVROAuth2Client/platform/URLSession.h"

namespace host {

// Thread rule: any thread.
class RetryingSession final : public qvr::URLSession {
 public:
  // `session` does the work. Its tasks say by countOfBytesReceived() whether anything had arrived;
  // when they cannot tell, nothing is repeated.
  explicit RetryingSession(qvr::Ref<qvr::URLSession> session);

  // The task's handler is called once, for the last attempt. Cancelling the task ends the attempt
  // that is under way, and none follows.
  qvr::Ref<qvr::URLSessionDataTask> dataTask(
      qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) override;

 private:
  const qvr::Ref<qvr::URLSession> session_;
};

// True for a POST whose form asks for a refresh: it has one grant_type, "refresh_token" (RFC 6749
// section 6).
bool isTokenRefresh(const qvr::URLRequest& request);

}  // namespace host
