// A session that answers every task by itself, on a real serial queue.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "QVROAuth2Client/platform/Executor.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "tests/support/FakeSession.h"

namespace support {

class AutomaticSession final : public qvr::URLSession {
 public:
  // `body(n)` is the body of the n-th answer, counted from 1; an empty one is a lost connection.
  explicit AutomaticSession(std::function<std::string(int)> body)
      : body_(std::move(body)), callbackQueue_(qvr::makeSerialQueue("callbacks")) {}

  qvr::Ref<qvr::URLSessionDataTask> dataTask(qvr::URLRequest,
                                             qvr::DataTaskCompletionHandler handler) override {
    int running = ++running_;
    int most = mostRunning_;
    while (most < running && !mostRunning_.compare_exchange_weak(most, running)) {
    }
    return qvr::makeRef<Task>(this, std::move(handler));
  }

  const qvr::Ref<qvr::Executor>& callbackQueue() const { return callbackQueue_; }

  // Tasks that were answered, and the most that were made and not yet answered at one time.
  int answered() const { return answered_; }
  int mostRunning() const { return mostRunning_; }

 private:
  class Task final : public qvr::URLSessionDataTask {
   public:
    Task(AutomaticSession* session, qvr::DataTaskCompletionHandler handler)
        : session_(qvr::Ref<AutomaticSession>::retain(session)), handler_(std::move(handler)) {}

    void resume() override {
      if (resumed_.exchange(true)) return;
      session_->callbackQueue_->async([task = qvr::Ref<Task>::retain(this)] { task->complete(); });
    }
    void cancel() override { cancelled_ = true; }
    State state() const override { return resumed_ ? State::kRunning : State::kSuspended; }

   private:
    void complete() {
      const std::string body = session_->body_(++session_->answered_);
      const qvr::DataTaskCompletionHandler handler = std::exchange(handler_, nullptr);
      --session_->running_;
      if (cancelled_ || body.empty()) {
        const std::int64_t code =
            cancelled_ ? qvr::NSURLErrorCancelled : qvr::NSURLErrorNetworkConnectionLost;
        handler(std::nullopt, nullptr, qvr::Error::errorWithDomain(qvr::NSURLErrorDomain, code));
        return;
      }
      qvr::HTTPURLResponse response;
      response.statusCode = 200;
      handler(bytes(body), &response, nullptr);
    }

    const qvr::Ref<AutomaticSession> session_;
    qvr::DataTaskCompletionHandler handler_;
    std::atomic<bool> resumed_{false};
    std::atomic<bool> cancelled_{false};
  };

  const std::function<std::string(int)> body_;
  const qvr::Ref<qvr::Executor> callbackQueue_;
  std::atomic<int> running_{0};
  std::atomic<int> mostRunning_{0};
  std::atomic<int> answered_{0};
};

}  // namespace support
