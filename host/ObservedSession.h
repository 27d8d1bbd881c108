// A session whose answers can be looked at on their way to the library: for what the library's
// responses do not keep, and a user should hear of.
#pragma once

#include <functional>
#include <mutex>

#include "QVROAuth2Client/platform/URLSession.h"

namespace host {

// Thread rule: any thread. The observer is called on the session's callback queue, just before the
// handler of the request.
class ObservedSession final : public qvr::URLSession {
 public:
  // Gets every answer; transport errors, which have none, are not shown.
  using Observer = std::function<void(const qvr::Data& body, const qvr::HTTPURLResponse& response)>;

  // `session` does the work.
  explicit ObservedSession(qvr::Ref<qvr::URLSession> session);

  // Shows the answers that come from now on to `observer` alone; to nobody when it is empty.
  void setObserver(Observer observer);

  qvr::Ref<qvr::URLSessionDataTask> dataTask(
      qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) override;

 private:
  void observe(const qvr::Data& body, const qvr::HTTPURLResponse& response) const;

  const qvr::Ref<qvr::URLSession> session_;
  mutable std::mutex mutex_;
  Observer observer_;
};

}  // namespace host
