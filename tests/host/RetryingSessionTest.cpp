// Which requests are sent once more, when, and what becomes of a task meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/RetryingSession.h"
#include "tests/support/FakeSession.h"

namespace host {
namespace {

using State = qvr::URLSessionDataTask::State;
using support::FakeSession;
using support::FakeTask;
using support::ManualQueue;

constexpr std::string_view kRefresh =
    "client_id=c&grant_type=refresh_token&refresh_token=rt&scope=s";

// A task of the fake session that also counts, and keeps what was called.
class CountingTask final : public qvr::URLSessionDataTask {
 public:
  CountingTask(qvr::Ref<qvr::URLSessionDataTask> task, std::optional<std::int64_t> count)
      : task_(std::move(task)), count_(count) {}
  void resume() override {
    calls_.push_back("resume");
    task_->resume();
  }
  void cancel() override {
    calls_.push_back("cancel");
    task_->cancel();
  }
  State state() const override { return task_->state(); }
  std::optional<std::int64_t> countOfBytesReceived() const override { return count_; }
  const std::vector<std::string>& calls() const { return calls_; }

 private:
  const qvr::Ref<qvr::URLSessionDataTask> task_;
  const std::optional<std::int64_t> count_;
  std::vector<std::string> calls_;
};

// The fake session, whose tasks say that `count` bytes have arrived.
class CountingSession final : public qvr::URLSession {
 public:
  explicit CountingSession(qvr::Ref<FakeSession> session) : session_(std::move(session)) {}
  qvr::Ref<qvr::URLSessionDataTask> dataTask(qvr::URLRequest request,
                                             qvr::DataTaskCompletionHandler handler) override {
    last = qvr::makeRef<CountingTask>(session_->dataTask(std::move(request), std::move(handler)),
                                      count);
    return last;
  }

  std::optional<std::int64_t> count = 0;
  qvr::Ref<CountingTask> last;

 private:
  const qvr::Ref<FakeSession> session_;
};

qvr::URLRequest post(std::string_view body) {
  qvr::URLRequest request(qvr::URL::URLWithString("https://login.example.com/token").value());
  request.HTTPMethod = "POST";
  request.addValue("application/x-www-form-urlencoded", "Content-Type");
  request.HTTPBody = support::bytes(body);
  return request;
}

class RetryingSessionTest : public testing::Test {
 protected:
  // Makes a task; its outcome goes to `codes_`, 0 for an answer.
  qvr::Ref<qvr::URLSessionDataTask> taskFor(qvr::URLRequest request) {
    return session_->dataTask(
        std::move(request),
        [this, held = held_](std::optional<qvr::Data> data, const qvr::HTTPURLResponse* response,
                             qvr::ErrorPtr error) {
          EXPECT_EQ(data.has_value(), response != nullptr);
          EXPECT_EQ(data.has_value(), error == nullptr);
          codes_.push_back(error ? error->code() : 0);
          if (data) body_.assign(data->begin(), data->end());
        });
  }

  qvr::Ref<qvr::URLSessionDataTask> startRefresh() {
    auto task = taskFor(post(kRefresh));
    task->resume();
    return task;
  }

  void run() {
    while (queue_->runOne()) {
    }
  }

  // The last attempt fails so, and its handler runs.
  void fail(std::int64_t code) {
    fake_->last().fail(code);
    run();
  }
  void lose() { fail(qvr::NSURLErrorNetworkConnectionLost); }
  void answer() {
    fake_->last().answer(200, "answer");
    run();
  }

  std::size_t attempts() const { return fake_->tasks().size(); }

  const qvr::Ref<ManualQueue> queue_ = qvr::makeRef<ManualQueue>("callbacks");
  const qvr::Ref<FakeSession> fake_ = qvr::makeRef<FakeSession>(queue_);
  const qvr::Ref<CountingSession> counting_ = qvr::makeRef<CountingSession>(fake_);
  qvr::Ref<qvr::URLSession> session_ = qvr::makeRef<RetryingSession>(counting_);
  std::shared_ptr<int> held_ = std::make_shared<int>();
  std::vector<std::int64_t> codes_;
  std::string body_;
};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(RetryingSessionTest, SendsARefreshOnceMoreWhenTheConnectionWasLostBeforeAByte) {
  const auto task = startRefresh();
  lose();
  ASSERT_EQ(attempts(), 2u);
  EXPECT_THAT(codes_, IsEmpty());
  EXPECT_EQ(task->state(), State::kRunning);
  EXPECT_EQ(fake_->tasks()[0]->body(), kRefresh);
  EXPECT_EQ(fake_->tasks()[1]->body(), kRefresh);
  EXPECT_EQ(fake_->tasks()[1]->request().headers, fake_->tasks()[0]->request().headers);
  answer();
  EXPECT_THAT(codes_, ElementsAre(0));
  EXPECT_EQ(body_, "answer");
  EXPECT_EQ(task->state(), State::kCompleted);
}

TEST_F(RetryingSessionTest, SendsNoThirdTime) {
  const auto task = startRefresh();
  lose();
  lose();
  EXPECT_EQ(attempts(), 2u);
  EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorNetworkConnectionLost));
  EXPECT_EQ(task->state(), State::kCompleted);
}

TEST_F(RetryingSessionTest, ReportsAnotherFailureOfTheSecondAttempt) {
  startRefresh();
  lose();
  fail(qvr::NSURLErrorTimedOut);
  EXPECT_EQ(attempts(), 2u);
  EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorTimedOut));
}

TEST_F(RetryingSessionTest, DoesNotRepeatWhenSomethingHadArrivedOrThatIsNotKnown) {
  for (const std::optional<std::int64_t> count : {std::optional<std::int64_t>(1), {}}) {
    counting_->count = count;
    codes_.clear();
    const auto task = startRefresh();
    EXPECT_EQ(task->countOfBytesReceived(), count);
    const std::size_t before = attempts();
    lose();
    EXPECT_EQ(attempts(), before);
    EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorNetworkConnectionLost));
    EXPECT_EQ(task->countOfBytesReceived(), count);
  }
}

TEST_F(RetryingSessionTest, RepeatsAfterNoOtherFailureAndNoAnswer) {
  for (const std::int64_t code :
       {qvr::NSURLErrorTimedOut, qvr::NSURLErrorCannotConnectToHost, qvr::NSURLErrorCannotFindHost,
        qvr::NSURLErrorNotConnectedToInternet, qvr::NSURLErrorSecureConnectionFailed,
        qvr::NSURLErrorServerCertificateUntrusted, qvr::NSURLErrorCannotParseResponse,
        qvr::NSURLErrorUnknown, qvr::NSURLErrorCancelled}) {
    codes_.clear();
    const std::size_t before = attempts();
    startRefresh();
    fail(code);
    EXPECT_EQ(attempts(), before + 1) << code;
    EXPECT_THAT(codes_, ElementsAre(code));
  }
  const std::size_t before = attempts();
  startRefresh();
  fake_->last().answer(503, "busy");
  run();
  EXPECT_EQ(attempts(), before + 1);
}

TEST_F(RetryingSessionTest, RepeatsNothingButARefresh) {
  qvr::URLRequest get = post(kRefresh);
  get.HTTPMethod = "GET";
  const qvr::URLRequest requests[] = {
      post("grant_type=authorization_code&code=refresh_token"),
      post("token=rt&token_type_hint=refresh_token"),
      post("grant_type=refresh_token2"),
      post("grant_type=authorization_code&grant_type=refresh_token"),
      post("grant_type=refresh_token&grant_type=authorization_code"),
      post("xgrant_type=refresh_token"),
      post("a=grant_type=refresh_token"),
      post(""),
      get,
  };
  for (const qvr::URLRequest& request : requests) {
    EXPECT_FALSE(isTokenRefresh(request));
    codes_.clear();
    const std::size_t before = attempts();
    const auto task = taskFor(request);
    task->resume();
    lose();
    EXPECT_EQ(attempts(), before + 1) << fake_->last().body();
    EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorNetworkConnectionLost));
  }
  EXPECT_TRUE(isTokenRefresh(post(kRefresh)));
  EXPECT_TRUE(isTokenRefresh(post("grant_type=refresh_token")));
}

TEST_F(RetryingSessionTest, IsSuspendedUntilItIsResumedAndSendsNothingForASecondResume) {
  const auto task = taskFor(post(kRefresh));
  EXPECT_EQ(task->state(), State::kSuspended);
  EXPECT_EQ(task->countOfBytesReceived(), 0);
  EXPECT_EQ(attempts(), 0u);
  task->resume();
  task->resume();
  EXPECT_EQ(task->state(), State::kRunning);
  EXPECT_EQ(attempts(), 1u);
  answer();
  task->resume();
  task->cancel();
  EXPECT_EQ(attempts(), 1u);
  EXPECT_EQ(task->state(), State::kCompleted);
  EXPECT_THAT(codes_, ElementsAre(0));
}

TEST_F(RetryingSessionTest, TaskThatIsCancelledBeforeItsResumeReportsThatAtResume) {
  const auto task = taskFor(post(kRefresh));
  task->cancel();
  EXPECT_EQ(task->state(), State::kSuspended);
  run();
  EXPECT_THAT(codes_, IsEmpty());
  task->resume();
  EXPECT_THAT(codes_, IsEmpty()) << "the handler ran inside resume()";
  run();
  EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorCancelled));
  EXPECT_EQ(attempts(), 1u);
}

TEST_F(RetryingSessionTest, CancellingEitherAttemptEndsTheTask) {
  for (const bool isSecond : {false, true}) {
    codes_.clear();
    const std::size_t before = attempts();
    const auto task = startRefresh();
    if (isSecond) lose();
    task->cancel();
    EXPECT_EQ(task->state(), State::kCanceling);
    EXPECT_THAT(codes_, IsEmpty()) << "the handler ran inside cancel()";
    run();
    EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorCancelled));
    EXPECT_EQ(attempts(), before + (isSecond ? 2u : 1u));
    EXPECT_EQ(task->state(), State::kCompleted);
    task->cancel();
    run();
    EXPECT_EQ(codes_.size(), 1u);
  }
}

// The first attempt has failed, and its handler has not run yet.
TEST_F(RetryingSessionTest, CancellingBetweenTheAttemptsSendsNothingMore) {
  const auto task = startRefresh();
  fake_->last().fail(qvr::NSURLErrorNetworkConnectionLost);
  task->cancel();
  run();
  EXPECT_THAT(codes_, ElementsAre(qvr::NSURLErrorCancelled));
  EXPECT_EQ(task->state(), State::kCompleted);
  ASSERT_EQ(attempts(), 2u) << "made for its error";
  EXPECT_THAT(counting_->last->calls(), ElementsAre("cancel", "resume")) << "something was sent";
}

TEST_F(RetryingSessionTest, HandlerIsReleasedWithItsCall) {
  startRefresh();
  EXPECT_EQ(held_.use_count(), 2);
  lose();
  EXPECT_EQ(held_.use_count(), 2);
  answer();
  EXPECT_EQ(held_.use_count(), 1);
}

TEST_F(RetryingSessionTest, TaskThatIsNeverResumedGoesWithItsHandler) {
  taskFor(post(kRefresh));
  EXPECT_EQ(held_.use_count(), 1);
}

TEST_F(RetryingSessionTest, GoesOnWhenTheTaskAndTheSessionAreLetGoOf) {
  startRefresh();
  session_ = nullptr;
  lose();
  answer();
  EXPECT_THAT(codes_, ElementsAre(0));
}

}  // namespace
}  // namespace host
