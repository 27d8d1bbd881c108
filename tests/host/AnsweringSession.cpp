#include "tests/host/AnsweringSession.h"

#include <atomic>
#include <utility>

namespace host_test {

namespace {

void complete(const Answer& answer, const qvr::URLRequest& request,
              const qvr::DataTaskCompletionHandler& handler) {
  if (answer.transportError != 0) {
    qvr::Error::UserInfo userInfo = {{std::string(qvr::NSURLErrorFailingURLErrorKey), request.url}};
    return handler(std::nullopt, nullptr,
                   qvr::Error::errorWithDomain(qvr::NSURLErrorDomain, answer.transportError,
                                               std::move(userInfo)));
  }
  qvr::HTTPURLResponse response;
  response.statusCode = answer.status;
  response.headers = answer.headers;
  handler(qvr::Data(answer.body.begin(), answer.body.end()), &response, nullptr);
}

}  // namespace

class AnsweringSession::Task final : public qvr::URLSessionDataTask {
 public:
  Task(qvr::Ref<AnsweringSession> session, qvr::URLRequest request,
       qvr::DataTaskCompletionHandler handler)
      : session_(std::move(session)), request_(std::move(request)), handler_(std::move(handler)) {}

  void resume() override {
    if (resumed_.exchange(true)) return;
    session_->send(request_, std::exchange(handler_, nullptr));
  }
  void cancel() override {}  // too late: the answer is on its way
  State state() const override { return resumed_ ? State::kCompleted : State::kSuspended; }

 private:
  const qvr::Ref<AnsweringSession> session_;
  const qvr::URLRequest request_;
  qvr::DataTaskCompletionHandler handler_;
  std::atomic<bool> resumed_{false};
};

qvr::Ref<qvr::URLSessionDataTask> AnsweringSession::dataTask(
    qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) {
  return qvr::makeRef<Task>(qvr::Ref<AnsweringSession>::retain(this), std::move(request),
                            std::move(completionHandler));
}

void AnsweringSession::send(const qvr::URLRequest& request,
                            const qvr::DataTaskCompletionHandler& handler) {
  Answer answer{0, "", qvr::NSURLErrorNotConnectedToInternet};
  std::function<void()> observer;
  {
    qvr::MutexLock lock(mutex_);
    requests_.push_back(request.HTTPMethod + " " + request.url.absoluteString() + " " +
                        std::string(request.HTTPBody.begin(), request.HTTPBody.end()));
    observer = observer_;
    if (!answers_.empty()) {
      answer = answers_.front();
      answers_.pop_front();
    }
  }
  if (observer) observer();
  callbackQueue_->async([=] { complete(answer, request, handler); });
}

void AnsweringSession::answerWith(Answer answer) {
  qvr::MutexLock lock(mutex_);
  answers_.push_back(std::move(answer));
}

void AnsweringSession::onRequest(std::function<void()> observer) {
  qvr::MutexLock lock(mutex_);
  observer_ = std::move(observer);
}

std::vector<std::string> AnsweringSession::requests() const {
  qvr::MutexLock lock(mutex_);
  return requests_;
}

}  // namespace host_test
