// The life of a task: its states, cancellation at any moment, the callback queue, and what is let
// go of when.
#include <atomic>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "tests/ports/CurlSessionFixture.h"

namespace support {
namespace {

using State = qvr::URLSessionDataTask::State;

Behaviour hang() {
  return rawAnswer("", Afterwards::kHang);
}

class CurlSessionTaskTest : public CurlSessionTest {
 protected:
  qvr::Ref<qvr::URLSessionDataTask> taskFor(qvr::DataTaskCompletionHandler handler) {
    return session->dataTask(requestFor(server.url()), std::move(handler));
  }

  void expectCancelled(const Reply& reply) { expectCancelled(reply, server.url()); }

  void expectCancelled(const Reply& reply, const std::string& url) {
    EXPECT_EQ(reply.calls, 1);
    EXPECT_THAT(reply.error, IsErrorWithUserInfo(qvr::NSURLErrorDomain, qvr::NSURLErrorCancelled,
                                                 failureOf(url, "cancelled")));
    EXPECT_FALSE(reply.data);
    EXPECT_FALSE(reply.response);
  }
};

TEST_F(CurlSessionTaskTest, IsSuspendedThenRunningThenCompleted) {
  server.enqueue(hang());
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  EXPECT_EQ(task->state(), State::kSuspended);
  task->resume();
  EXPECT_EQ(task->state(), State::kRunning);
  ASSERT_TRUE(server.waitForRequests(1));
  EXPECT_EQ(task->state(), State::kRunning);
  task->cancel();
  waiter.wait();
  EXPECT_EQ(task->state(), State::kCompleted);
}

TEST_F(CurlSessionTaskTest, IsCompletedWhenTheHandlerRuns) {
  Event called;
  std::atomic<State> seen{State::kSuspended};
  qvr::Ref<qvr::URLSessionDataTask> task;
  task = taskFor([&](auto&&...) {
    seen = task->state();
    called.happen();
  });
  task->resume();
  ASSERT_TRUE(called.wait());
  EXPECT_EQ(seen, State::kCompleted);
}

TEST_F(CurlSessionTaskTest, IsSentOnceHoweverOftenItIsResumed) {
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  task->resume();
  task->resume();
  waiter.wait();
  task->resume();
  get(server.url());  // anything sent by the last call would have come before
  EXPECT_EQ(server.requests().size(), 2u);
  EXPECT_EQ(waiter.now().calls, 1);
}

TEST_F(CurlSessionTaskTest, ReportsCancellationOfARunningRequestOnceAndDropsTheConnection) {
  server.enqueue(hang());
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  task->resume();
  ASSERT_TRUE(server.waitForRequests(1));
  task->cancel();
  task->cancel();
  expectCancelled(waiter.wait());
  EXPECT_TRUE(server.waitForOpenConnections(0));
  task->cancel();
  get(server.url());
  EXPECT_EQ(waiter.now().calls, 1);
}

TEST_F(CurlSessionTaskTest, IsCancelingUntilTheHandlerIsCalled) {
  // The handler of another task holds the callback queue up meanwhile.
  Event mayGoOn;
  Event isHeldUp;
  const auto blocker = taskFor([&](auto&&...) {
    isHeldUp.happen();
    mayGoOn.wait();
  });
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  blocker->resume();
  ASSERT_TRUE(isHeldUp.wait());
  server.enqueue(hang());
  task->resume();
  ASSERT_TRUE(server.waitForRequests(2));
  task->cancel();
  EXPECT_EQ(task->state(), State::kCanceling);
  EXPECT_TRUE(server.waitForOpenConnections(0));  // the request itself is gone by now
  EXPECT_EQ(waiter.now().calls, 0);
  mayGoOn.happen();
  expectCancelled(waiter.wait());
}

TEST_F(CurlSessionTaskTest, ReportsWhatNeedsNoAnswerWhileAnotherRequestWaitsForItsOwn) {
  get(server.url());  // libcurl wakes up by itself while it connects, and must not here
  server.enqueue(hang());
  const ReplyWaiter waiting;
  const auto task = taskFor(waiting.handler());
  task->resume();
  ASSERT_TRUE(server.waitForRequests(2));
  EXPECT_EQ(codeOf(get("m.x://auth")), qvr::NSURLErrorUnsupportedURL);
  const ReplyWaiter waiter;
  const auto cancelled = taskFor(waiter.handler());
  cancelled->cancel();
  cancelled->resume();
  expectCancelled(waiter.wait());
  EXPECT_EQ(waiting.now().calls, 0);
  task->cancel();
  expectCancelled(waiting.wait());
}

TEST_F(CurlSessionTaskTest, KeepsTheDeadlinesOfOthersWhileAHandlerRuns) {
  options.idleTimeoutSeconds = 0.1;
  session = qvr::makeURLSession(options);
  server.enqueue(answer(200, "first"));
  server.enqueue(hang());
  const ReplyWaiter waiter;
  Event isDone;
  bool isClosedMeanwhile = false;
  taskFor([&](auto&&...) {
    taskFor(waiter.handler())->resume();
    isClosedMeanwhile = server.waitForRequests(2) && server.waitForOpenConnections(0);
    isDone.happen();
  })->resume();
  ASSERT_TRUE(isDone.wait(60));
  EXPECT_TRUE(isClosedMeanwhile);
  EXPECT_EQ(codeOf(waiter.wait()), qvr::NSURLErrorTimedOut);
}

TEST_F(CurlSessionTaskTest, ReportsCancellationEvenWhenTheAnswerIsInAlready) {
  Event mayGoOn;
  Event isHeldUp;
  const auto blocker = taskFor([&](auto&&...) {
    isHeldUp.happen();
    mayGoOn.wait();
  });
  blocker->resume();
  ASSERT_TRUE(isHeldUp.wait());
  const ReplyWaiter waiter;
  server.enqueue(rawAnswer("HTTP/1.1 200 OK\r\n\r\n"));
  const auto task = taskFor(waiter.handler());
  task->resume();
  ASSERT_TRUE(server.waitForRequests(2));
  ASSERT_TRUE(server.waitForOpenConnections(0));
  taskFor(nullptr)->resume();  // when this one is out, the session has read that answer
  ASSERT_TRUE(server.waitForRequests(3));
  EXPECT_EQ(task->state(), State::kRunning);
  task->cancel();
  mayGoOn.happen();
  expectCancelled(waiter.wait());
}

TEST_F(CurlSessionTaskTest, CancelledBeforeResumeSendsNothingAndReportsItAtResume) {
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  task->cancel();
  task->cancel();
  EXPECT_EQ(waiter.now().calls, 0);
  task->resume();
  task->resume();
  task->cancel();
  expectCancelled(waiter.wait());
  EXPECT_EQ(task->state(), State::kCompleted);
  get(server.url());
  EXPECT_EQ(waiter.now().calls, 1);
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlSessionTaskTest, NeverCallsTheHandlerOfATaskThatIsNeverResumed) {
  const ReplyWaiter waiter;
  taskFor(waiter.handler())->cancel();
  static_cast<void>(taskFor(waiter.handler()));
  get(server.url());
  EXPECT_EQ(waiter.now().calls, 0);
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlSessionTaskTest, CancelAfterCompletionDoesNothing) {
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  task->resume();
  EXPECT_EQ(waiter.wait().body(), "{}");
  task->cancel();
  EXPECT_EQ(task->state(), State::kCompleted);
  get(server.url());
  EXPECT_EQ(waiter.now().calls, 1);
}

TEST_F(CurlSessionTaskTest, NeverCallsTheHandlerInsideCancelOrResume) {
  // A lock that is held over both calls and taken by the handler: inside, it would not be free.
  std::mutex mutex;
  for (int round = 0; round < 50; ++round) {
    Event called;
    const auto task = taskFor([&](auto&&...) {
      { const std::lock_guard lock(mutex); }
      called.happen();
    });
    {
      const std::lock_guard lock(mutex);
      if (round % 3 == 0) task->cancel();
      task->resume();
      if (round % 3 == 1) task->cancel();
    }
    ASSERT_TRUE(called.wait());
  }
}

TEST_F(CurlSessionTaskTest, SurvivesCancellationThatRacesCompletion) {
  int cancelled = 0;
  for (int round = 0; round < 500; ++round) {
    const ReplyWaiter waiter;
    const auto task = taskFor(waiter.handler());
    task->resume();
    std::thread canceller([&] {
      // A spread of moments from the first byte to after the last, without a clock.
      for (int spin = 0; spin < round * 40; ++spin)
        static_cast<void>(task->state());
      task->cancel();
    });
    const Reply reply = waiter.wait();
    canceller.join();
    ASSERT_EQ(waiter.now().calls, 1);
    ASSERT_EQ(task->state(), State::kCompleted);
    if (reply.error) {
      ASSERT_EQ(reply.error->code(), qvr::NSURLErrorCancelled);
      ++cancelled;
    } else {
      ASSERT_EQ(reply.body(), "{}");
    }
  }
  EXPECT_GT(cancelled, 0);
}

TEST_F(CurlSessionTaskTest, MayBeCancelledFromManyThreadsAtOnce) {
  const LoopbackServer silent(hang());
  for (int round = 0; round < 20; ++round) {
    const ReplyWaiter waiter;
    const auto task = session->dataTask(requestFor(silent.url()), waiter.handler());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&, i] {
        if (i == 0) task->resume();
        task->cancel();
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    expectCancelled(waiter.wait(), silent.url());
    EXPECT_EQ(waiter.now().calls, 1);
  }
}

TEST_F(CurlSessionTaskTest, MayBeCancelledByItsOwnHandlerAndOthers) {
  server.enqueue(answer(200, "first"));
  server.enqueue(hang());
  const ReplyWaiter waiter;
  const auto second = taskFor(waiter.handler());
  qvr::Ref<qvr::URLSessionDataTask> first;
  first = taskFor([&](auto&&...) {
    first->cancel();
    second->resume();
    second->cancel();
  });
  first->resume();
  expectCancelled(waiter.wait());
}

TEST_F(CurlSessionTaskTest, RunsHandlersOneAtATimeOnOneThread) {
  constexpr int kCount = 60;
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  std::set<std::thread::id> threads;  // touched by handlers only: a race if they overlapped
  std::atomic<int> calls{0};
  Event done;
  for (int i = 0; i < kCount; ++i) {
    taskFor([&](auto&&...) {
      if (++inside != 1) ++overlaps;
      threads.insert(std::this_thread::get_id());
      --inside;
      if (++calls == kCount) done.happen();
    })->resume();
  }
  ASSERT_TRUE(done.wait(60));
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(threads.size(), 1u);
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

// Says on which thread it goes.
struct Token {
  explicit Token(Event& event, std::atomic<std::thread::id>& id) : gone(event), thread(id) {}
  ~Token() {
    thread = std::this_thread::get_id();
    gone.happen();
  }
  Event& gone;
  std::atomic<std::thread::id>& thread;
};

TEST_F(CurlSessionTaskTest, ReleasesTheHandlerOnTheCallbackQueueRightAfterItsCall) {
  Event gone;
  std::atomic<std::thread::id> releasedOn;
  std::atomic<std::thread::id> calledOn;
  auto token = std::make_shared<Token>(gone, releasedOn);
  const auto task =
      taskFor([token, &calledOn](auto&&...) { calledOn = std::this_thread::get_id(); });
  token.reset();
  task->resume();
  ASSERT_TRUE(gone.wait()) << "the task, which is still held, holds its handler";
  EXPECT_EQ(releasedOn.load(), calledOn.load());
}

TEST_F(CurlSessionTaskTest, WipesTheBodyWithoutTouchingTheAnswer) {
  qvr::URLRequest request = requestFor(server.url());
  request.HTTPMethod = "POST";
  const std::string_view secret = "refresh_token=secret";
  request.HTTPBody.assign(secret.begin(), secret.end());
  const std::uint8_t* const bytes = request.HTTPBody.data();  // moved along, never copied
  const ReplyWaiter waiter;
  const auto task = session->dataTask(std::move(request), waiter.handler());
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(bytes), secret.size()), secret);
  task->resume();
  EXPECT_EQ(waiter.wait().body(), "{}");
  EXPECT_EQ(server.requests().at(0).body, secret);
  EXPECT_EQ(qvr::Data(bytes, bytes + secret.size()), qvr::Data(secret.size(), 0));
}

TEST_F(CurlSessionTaskTest, FinishesWhatIsInFlightAfterTheSessionAndTheTaskAreReleased) {
  Event mayAnswer;
  server.enqueue([&](LoopbackConnection& connection, const CapturedRequest&) {
    mayAnswer.wait();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nlate");
    return Afterwards::kKeepOpen;
  });
  const ReplyWaiter waiter;
  taskFor(waiter.handler())->resume();
  ASSERT_TRUE(server.waitForRequests(1));
  session = nullptr;
  mayAnswer.happen();
  EXPECT_EQ(waiter.wait().body(), "late");
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(CurlSessionTaskTest, MayBeResumedAfterTheSessionIsReleased) {
  const ReplyWaiter waiter;
  const auto task = taskFor(waiter.handler());
  session = nullptr;
  task->resume();
  EXPECT_EQ(waiter.wait().body(), "{}");
  EXPECT_TRUE(server.waitForOpenConnections(0)) << "a completed task holds the session's thread";
}

TEST_F(CurlSessionTaskTest, LetsTheHandlerReleaseTheLastReferences) {
  Event called;
  auto task = std::make_shared<qvr::Ref<qvr::URLSessionDataTask>>();
  *task = taskFor([task, &called](auto&&...) {
    *task = nullptr;
    called.happen();
  });
  const auto running = *task;
  task.reset();
  session = nullptr;
  running->resume();
  EXPECT_TRUE(called.wait());
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
    ++count;
  return count;
}

// Waits for what is on its way out; the number that is left.
std::size_t entriesDownTo(std::size_t count, const char* folder) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (entriesOf(folder) > count && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  return entriesOf(folder);
}

TEST_F(CurlSessionTaskTest, LeavesNoThreadAndNoDescriptorBehind) {
  constexpr const char* kThreads = "/proc/self/task";
  constexpr const char* kDescriptors = "/proc/self/fd";
  const std::size_t threads = entriesOf(kThreads);
  std::size_t descriptors = 0;
  for (int round = 0; round < 10; ++round) {
    session = qvr::makeURLSession();
    get(server.url());
    static_cast<void>(taskFor(nullptr));
    session = nullptr;
    ASSERT_TRUE(server.waitForOpenConnections(0));
    ASSERT_LE(entriesDownTo(threads, kThreads), threads);
    if (round == 0) descriptors = entriesOf(kDescriptors);  // libraries may keep some of theirs
  }
  EXPECT_LE(entriesDownTo(descriptors, kDescriptors), descriptors);
}

}  // namespace
}  // namespace support
