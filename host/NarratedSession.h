// A session that tells the requests and answers as steps (see Steps.h), and what they hold only as
// NarratedText.h lets it through. One stands around the real session when steps are shown.
#pragma once

#include <atomic>

#include "QVROAuth2Client/platform/URLSession.h"

namespace host {

// Thread rule: any thread. Answers are told on the session's callback queue, just before the
// handler of the request.
class NarratedSession final : public qvr::URLSession {
 public:
  // `session` does the work.
  explicit NarratedSession(qvr::Ref<qvr::URLSession> session);

  qvr::Ref<qvr::URLSessionDataTask> dataTask(
      qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) override;

 private:
  const qvr::Ref<qvr::URLSession> session_;
  std::atomic<int> count_ = 0;
};

// The session, narrated if steps are shown.
qvr::Ref<qvr::URLSession> narratedIfShown(qvr::Ref<qvr::URLSession> session);

}  // namespace host
