// A session that answers each request from a list, on a thread of its own, as a server would.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Executor.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "src/platform/Mutex.h"

namespace host_test {

struct Answer {
  std::int64_t status = 200;
  std::string body;
  std::int64_t transportError = 0;  // of NSURLErrorDomain, in place of an answer
  qvr::HTTPHeaders headers{};
};

class AnsweringSession final : public qvr::URLSession {
 public:
  AnsweringSession() : callbackQueue_(qvr::makeSerialQueue("answers")) {}

  qvr::Ref<qvr::URLSessionDataTask> dataTask(
      qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) override;

  // Answers the next request that is not provided for yet. Without one, requests fail with
  // NSURLErrorNotConnectedToInternet.
  void answerWith(Answer answer);

  // Called with every request before it is answered, without a lock.
  void onRequest(std::function<void()> observer);

  // What was sent: "POST https://host/path body".
  std::vector<std::string> requests() const;

  const qvr::Ref<qvr::Executor>& callbackQueue() const { return callbackQueue_; }

 private:
  class Task;
  void send(const qvr::URLRequest& request, const qvr::DataTaskCompletionHandler& handler);

  const qvr::Ref<qvr::Executor> callbackQueue_;
  mutable qvr::Mutex mutex_;
  std::deque<Answer> answers_ QVR_GUARDED_BY(mutex_);
  std::vector<std::string> requests_ QVR_GUARDED_BY(mutex_);
  std::function<void()> observer_ QVR_GUARDED_BY(mutex_);
};

}  // namespace host_test
