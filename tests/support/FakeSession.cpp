#include "tests/support/FakeSession.h"

#include <gtest/gtest.h>

namespace support {

void FakeTask::resume() {
  if (state_ != State::kSuspended) return;
  state_ = State::kRunning;
  if (cancelledBeforeResume_) fail(qvr::NSURLErrorCancelled);
}

void FakeTask::cancel() {
  if (state_ == State::kSuspended) cancelledBeforeResume_ = true;
  if (state_ != State::kRunning) return;
  fail(qvr::NSURLErrorCancelled);
  state_ = State::kCanceling;
}

std::string FakeTask::body() const {
  return std::string(request_.HTTPBody.begin(), request_.HTTPBody.end());
}

void FakeTask::answer(std::int64_t status, std::string_view body) {
  qvr::HTTPURLResponse response;
  response.statusCode = status;
  complete(bytes(body), std::move(response), nullptr);
}

void FakeTask::fail(std::int64_t code) {
  complete(
      std::nullopt, {},
      qvr::Error::errorWithDomain(
          qvr::NSURLErrorDomain, code,
          qvr::Error::UserInfo{{std::string(qvr::NSLocalizedDescriptionKey), "made to fail"}}));
}

void FakeTask::complete(std::optional<qvr::Data> data, qvr::HTTPURLResponse response,
                        qvr::ErrorPtr error) {
  ASSERT_EQ(state_, State::kRunning) << "only a running task can be answered";
  state_ = State::kCompleted;
  callbackQueue_->async([handler = std::exchange(handler_, nullptr), data = std::move(data),
                         response = std::move(response), error = std::move(error)]() mutable {
    const bool hasResponse = data.has_value();
    handler(std::move(data), hasResponse ? &response : nullptr, std::move(error));
  });
}

qvr::Ref<qvr::URLSessionDataTask> FakeSession::dataTask(
    qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) {
  tasks_.push_back(
      qvr::makeRef<FakeTask>(std::move(request), std::move(completionHandler), callbackQueue_));
  return tasks_.back();
}

qvr::Data bytes(std::string_view text) {
  return qvr::Data(text.begin(), text.end());
}

}  // namespace support
