// A refresh on connections that are really lost: how often the server gets it.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/RetryingSession.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TLSFront.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using support::Afterwards;
using support::Behaviour;
using support::rawAnswer;

constexpr const char* kRefresh = "grant_type=refresh_token&refresh_token=rt";
constexpr const char* kCode = "grant_type=authorization_code&code=c";
const std::string kHead = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n";

class RetryingConnectionTest : public testing::Test {
 protected:
  RetryingConnectionTest() {
    setenv("no_proxy", "*", 1);  // a developer's proxy must not stand before the server
    qvr::URLSessionOptions options;
    options.certificateAuthorityFile = certificates_.authorityFile();
    session_ = qvr::makeRef<RetryingSession>(qvr::makeURLSession(options));
  }

  // A task, and the code that it ends with: 0 for an answer.
  struct Sent {
    qvr::Ref<qvr::URLSessionDataTask> task;
    std::future<std::int64_t> code;
  };

  Sent start(const std::string& body) {
    qvr::URLRequest request(qvr::URL::URLWithString(front_.url("/token")).value());
    request.HTTPMethod = "POST";
    request.HTTPBody.assign(body.begin(), body.end());
    auto code = std::make_shared<std::promise<std::int64_t>>();
    Sent sent{nullptr, code->get_future()};
    sent.task = session_->dataTask(
        std::move(request),
        [code](std::optional<qvr::Data>, const qvr::HTTPURLResponse*, qvr::ErrorPtr error) {
          code->set_value(error ? error->code() : 0);  // a second call would throw
        });
    sent.task->resume();
    return sent;
  }

  static std::int64_t codeOf(Sent sent) {
    const bool hasCome = sent.code.wait_for(20s) == std::future_status::ready;
    EXPECT_TRUE(hasCome) << "the handler was not called";
    return hasCome ? sent.code.get() : -1;
  }

  support::LoopbackServer server_;
  support::TestCertificates certificates_;
  const support::TLSFront front_{server_, certificates_.valid()};
  qvr::Ref<qvr::URLSession> session_;
};

TEST_F(RetryingConnectionTest, ConnectionLostBeforeAByteIsTriedOnceMore) {
  for (const Afterwards afterwards : {Afterwards::kClose, Afterwards::kReset}) {
    const std::size_t before = server_.requests().size();
    server_.enqueue(rawAnswer("", afterwards));
    server_.enqueue(rawAnswer(kHead + "{}"));
    EXPECT_EQ(codeOf(start(kRefresh)), 0);
    const auto requests = server_.requests();
    ASSERT_EQ(requests.size(), before + 2);
    EXPECT_EQ(requests[before].body, kRefresh);
    EXPECT_EQ(requests[before + 1].body, kRefresh);
  }
}

TEST_F(RetryingConnectionTest, ConnectionsLostTwiceAreTriedNoMore) {
  server_.enqueue(rawAnswer(""));
  server_.enqueue(rawAnswer(""));
  EXPECT_EQ(codeOf(start(kRefresh)), qvr::NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(server_.requests().size(), 2u);
}

TEST_F(RetryingConnectionTest, NothingIsSentAgainOnceAByteHasArrived) {
  std::size_t sent = 0;
  for (const std::string& beginning : {std::string("H"), std::string("HTT"), kHead, kHead + "{"}) {
    server_.enqueue(rawAnswer(beginning));
    EXPECT_EQ(codeOf(start(kRefresh)), qvr::NSURLErrorNetworkConnectionLost) << beginning;
    EXPECT_EQ(server_.requests().size(), ++sent) << beginning;
  }
}

// The reset waits until the byte is known here, since it would throw away what is not read.
TEST_F(RetryingConnectionTest, NothingIsSentAgainWhenTheConnectionIsResetAfterAByte) {
  std::promise<void> arrived;
  server_.enqueue([&](support::LoopbackConnection& connection, const support::CapturedRequest&) {
    connection.send("H");
    arrived.get_future().wait_for(20s);
    return Afterwards::kReset;
  });
  Sent sent = start(kRefresh);
  const auto limit = std::chrono::steady_clock::now() + 20s;
  while (sent.task->countOfBytesReceived() == 0 && std::chrono::steady_clock::now() < limit)
    std::this_thread::yield();
  arrived.set_value();
  EXPECT_EQ(codeOf(std::move(sent)), qvr::NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(RetryingConnectionTest, CodeIsSentOnce) {
  server_.enqueue(rawAnswer(""));
  EXPECT_EQ(codeOf(start(kCode)), qvr::NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(RetryingConnectionTest, CancellingTheSecondAttemptEndsIt) {
  server_.enqueue(rawAnswer(""));
  server_.enqueue(rawAnswer("", Afterwards::kHang));
  Sent sent = start(kRefresh);
  ASSERT_TRUE(server_.waitForRequests(2));
  sent.task->cancel();
  EXPECT_EQ(codeOf(std::move(sent)), qvr::NSURLErrorCancelled);
  EXPECT_EQ(server_.requests().size(), 2u);
}

// Whatever the moment, there is one call of each handler, and no more than two requests.
TEST_F(RetryingConnectionTest, ManyThatAreCancelledAtAnyMomentEndOnceEach) {
  constexpr std::size_t kCount = 40;
  for (std::size_t i = 0; i < kCount; ++i) {
    server_.enqueue(rawAnswer("", i % 2 == 0 ? Afterwards::kClose : Afterwards::kReset));
    Sent sent = start(kRefresh);
    const std::size_t before = server_.requests().size();
    if (i % 4 != 0) server_.waitForRequests(before + i % 3, 0.05);
    sent.task->cancel();
    const std::int64_t code = codeOf(std::move(sent));
    EXPECT_TRUE(code == qvr::NSURLErrorCancelled || code == 0 ||
                code == qvr::NSURLErrorNetworkConnectionLost)
        << code;
  }
  EXPECT_LE(server_.requests().size(), 2 * kCount);
}

}  // namespace
}  // namespace host
