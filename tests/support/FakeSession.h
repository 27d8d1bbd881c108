// A session whose tasks the test answers. Handlers run on its callback queue, never inside resume()
// or cancel(), as the seam demands.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QVROAuth2Client/platform/URLSession.h"
#include "tests/support/ManualQueue.h"

namespace support {

class FakeTask final : public qvr::URLSessionDataTask {
 public:
  FakeTask(qvr::URLRequest request, qvr::DataTaskCompletionHandler handler,
           qvr::Ref<ManualQueue> callbackQueue)
      : request_(std::move(request)),
        handler_(std::move(handler)),
        callbackQueue_(std::move(callbackQueue)) {}

  void resume() override;
  void cancel() override;
  State state() const override { return state_; }

  const qvr::URLRequest& request() const { return request_; }
  std::string body() const;
  bool hasHandler() const { return handler_ != nullptr; }

  // Queue the handler's call on the callback queue. The task must be running.
  void answer(std::int64_t status, std::string_view body);
  void fail(std::int64_t code);

 private:
  void complete(std::optional<qvr::Data> data, qvr::HTTPURLResponse response, qvr::ErrorPtr error);

  const qvr::URLRequest request_;
  qvr::DataTaskCompletionHandler handler_;
  const qvr::Ref<ManualQueue> callbackQueue_;
  State state_ = State::kSuspended;
  bool cancelledBeforeResume_ = false;
};

class FakeSession final : public qvr::URLSession {
 public:
  explicit FakeSession(qvr::Ref<ManualQueue> callbackQueue)
      : callbackQueue_(std::move(callbackQueue)) {}

  qvr::Ref<qvr::URLSessionDataTask> dataTask(
      qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) override;

  // All tasks made so far, oldest first.
  const std::vector<qvr::Ref<FakeTask>>& tasks() const { return tasks_; }
  FakeTask& last() const { return *tasks_.back(); }

 private:
  const qvr::Ref<ManualQueue> callbackQueue_;
  std::vector<qvr::Ref<FakeTask>> tasks_;
};

// The bytes of a text, for bodies.
qvr::Data bytes(std::string_view text);

}  // namespace support
