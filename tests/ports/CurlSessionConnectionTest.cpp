// Connections and time: reuse, the limit per host, and the two deadlines.
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "tests/ports/CurlSessionFixture.h"

namespace support {
namespace {

using namespace std::chrono_literals;

Behaviour hang() {
  return rawAnswer("", Afterwards::kHang);
}

// A body of `count` bytes, one every `pause`.
Behaviour drip(int count, std::chrono::milliseconds pause) {
  return [=](LoopbackConnection& connection, const CapturedRequest&) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(count) + "\r\n\r\n");
    for (int i = 0; i < count && !connection.waitForClose(pause); ++i)
      connection.send("d");
    return Afterwards::kKeepOpen;
  };
}

class CurlSessionConnectionTest : public CurlSessionTest {
 protected:
  void useDeadlines(double idle, double whole) {
    options.idleTimeoutSeconds = idle;
    options.requestTimeoutSeconds = whole;
    session = qvr::makeURLSession(options);
  }

  void expectTimeout(const Reply& reply, const std::string& url) {
    EXPECT_THAT(reply.error, IsErrorWithUserInfo(qvr::NSURLErrorDomain, qvr::NSURLErrorTimedOut,
                                                 failureOf(url, "The request timed out.")));
    EXPECT_FALSE(reply.data);
  }

  // Starts `count` requests; one waiter for each.
  std::vector<ReplyWaiter> start(std::size_t count) {
    std::vector<ReplyWaiter> waiters(count);
    for (const ReplyWaiter& waiter : waiters)
      session->dataTask(requestFor(server.url()), waiter.handler())->resume();
    return waiters;
  }
};

TEST_F(CurlSessionConnectionTest, ReusesTheConnection) {
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(get(server.url()).body(), "{}");
  EXPECT_EQ(server.requests().size(), 10u);
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(CurlSessionConnectionTest, ReusesTheConnectionAfterErrorStatusesAndEmptyBodies) {
  for (const int status : {400, 204, 500, 304, 302})
    EXPECT_EQ(codeOf(getAnswered(answer(status))), 0);
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(CurlSessionConnectionTest, OpensAnotherWhenTheServerHasClosedTheIdleOne) {
  const std::string reply = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";
  EXPECT_EQ(getAnswered(rawAnswer(reply)).body(), "{}");
  ASSERT_TRUE(server.waitForOpenConnections(0));
  EXPECT_EQ(get(server.url()).body(), "{}");
  EXPECT_EQ(server.connectionCount(), 2u);
}

TEST_F(CurlSessionConnectionTest, KeepsAtMostSixConnectionsToAHost) {
  LoopbackServer busy([&](LoopbackConnection& connection, const CapturedRequest& request) {
    busy.waitForRequests(6);  // so that six are wanted at once
    return answer(200, "ok")(connection, request);
  });
  std::vector<ReplyWaiter> waiters(40);
  for (const ReplyWaiter& waiter : waiters)
    session->dataTask(requestFor(busy.url()), waiter.handler())->resume();
  for (const ReplyWaiter& waiter : waiters)
    EXPECT_EQ(waiter.wait(60).body(), "ok");
  EXPECT_EQ(busy.requests().size(), 40u);
  EXPECT_EQ(busy.peakOpenConnections(), 6u);
  EXPECT_EQ(busy.connectionCount(), 6u);
}

TEST_F(CurlSessionConnectionTest, SendsARequestThatWaitedForAConnection) {
  for (int i = 0; i < 6; ++i)
    server.enqueue(rawAnswer("", Afterwards::kHang));
  std::vector<ReplyWaiter> waiters(6);
  std::vector<qvr::Ref<qvr::URLSessionDataTask>> tasks;
  for (const ReplyWaiter& waiter : waiters) {
    tasks.push_back(session->dataTask(requestFor(server.url()), waiter.handler()));
    tasks.back()->resume();
  }
  ASSERT_TRUE(server.waitForRequests(6));
  const std::vector<ReplyWaiter> waiting = start(1);
  tasks[3]->cancel();
  EXPECT_EQ(waiting[0].wait().body(), "{}");
  for (const auto& task : tasks)
    task->cancel();
  for (const ReplyWaiter& waiter : waiters)
    EXPECT_EQ(codeOf(waiter.wait()), qvr::NSURLErrorCancelled);
}

TEST_F(CurlSessionConnectionTest, GivesUpOnASilentServerAfterTheIdleTimeout) {
  useDeadlines(0.2, 30);
  const double seconds = secondsOf([&] { expectTimeout(getAnswered(hang()), server.url()); });
  EXPECT_GE(seconds, 0.2);
  EXPECT_LT(seconds, 5);
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(CurlSessionConnectionTest, GivesUpOnABodyThatStopsComing) {
  useDeadlines(0.2, 30);
  const double seconds = secondsOf([&] {
    expectTimeout(getAnswered(rawAnswer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf",
                                        Afterwards::kHang)),
                  server.url());
  });
  EXPECT_LT(seconds, 5);
}

TEST_F(CurlSessionConnectionTest, GivesUpOnAHandshakeThatDoesNotComeForward) {
  // A plain listener's backlog takes the connection and nobody ever answers.
  LoopbackServer silent(hang());
  useDeadlines(0.2, 30);
  const std::string url = "https" + silent.url().substr(4);
  const double seconds = secondsOf([&] { expectTimeout(get(url), url); });
  EXPECT_GE(seconds, 0.2);
  EXPECT_LT(seconds, 5);
}

TEST_F(CurlSessionConnectionTest, WaitsForAServerThatKeepsSending) {
  useDeadlines(0.5, 30);
  const double seconds =
      secondsOf([&] { EXPECT_EQ(getAnswered(drip(10, 100ms)).body(), std::string(10, 'd')); });
  EXPECT_GE(seconds, 0.9) << "the bytes came too fast to prove anything";
}

TEST_F(CurlSessionConnectionTest, EndsARequestThatTakesTooLongInAll) {
  useDeadlines(20, 0.5);
  const double seconds =
      secondsOf([&] { expectTimeout(getAnswered(drip(1000, 20ms)), server.url()); });
  EXPECT_GE(seconds, 0.5);
  EXPECT_LT(seconds, 5);
}

TEST_F(CurlSessionConnectionTest, DoesNotCountTheWaitForAConnectionAsIdle) {
  useDeadlines(0.5, 30);
  for (int i = 0; i < 6; ++i)
    server.enqueue(drip(10, 100ms));
  const std::vector<ReplyWaiter> busy = start(6);
  ASSERT_TRUE(server.waitForRequests(6));
  EXPECT_EQ(start(1)[0].wait().body(), "{}");
  for (const ReplyWaiter& waiter : busy)
    EXPECT_EQ(waiter.wait().body(), std::string(10, 'd'));
}

TEST_F(CurlSessionConnectionTest, EndsARequestThatWaitsTooLongForAConnection) {
  useDeadlines(20, 0.5);
  for (int i = 0; i < 7; ++i)
    server.enqueue(hang());
  const std::vector<ReplyWaiter> waiters = start(7);
  const double seconds = secondsOf([&] {
    for (const ReplyWaiter& waiter : waiters)
      expectTimeout(waiter.wait(), server.url());
  });
  EXPECT_LT(seconds, 5);
}

TEST_F(CurlSessionConnectionTest, TimesOutOneRequestWithoutTouchingTheOthers) {
  useDeadlines(0.3, 30);
  server.enqueue(hang());
  const std::vector<ReplyWaiter> hanging = start(1);
  ASSERT_TRUE(server.waitForRequests(1));
  server.enqueue(drip(10, 100ms));
  EXPECT_EQ(get(server.url()).body(), std::string(10, 'd'));
  EXPECT_EQ(codeOf(hanging[0].wait()), qvr::NSURLErrorTimedOut);
}

TEST_F(CurlSessionConnectionTest, TakesDeadlinesOfAnySize) {
  useDeadlines(1e300, 1e300);
  EXPECT_EQ(get(server.url()).body(), "{}");
  useDeadlines(-1, -1);
  EXPECT_EQ(codeOf(getAnswered(hang())), qvr::NSURLErrorTimedOut);
}

}  // namespace
}  // namespace support
