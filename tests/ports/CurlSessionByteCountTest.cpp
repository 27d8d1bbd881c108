// How much of an answer a task says has arrived: zero only when nothing has.
#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "src/ports/CurlSessionByteCount.h"
#include "tests/ports/CurlSessionFixture.h"
#include "tests/support/TLSFront.h"

namespace support {
namespace {

using Count = std::optional<std::int64_t>;

constexpr std::string_view kStatusLine = "HTTP/1.1 200 OK\r\n";
constexpr std::string_view kHead = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n";

class CurlSessionByteCountTest : public CurlSessionTest {
 protected:
  CurlSessionByteCountTest() {
    options.certificateAuthorityFile = certificates_.authorityFile();
    session = qvr::makeURLSession(options);
  }

  // Sends a request; what its task counted, as seen in the handler and afterwards.
  Count countOf(const std::string& url) {
    const ReplyWaiter waiter;
    std::atomic<std::int64_t> inHandler = -2;
    qvr::Ref<qvr::URLSessionDataTask> task;
    task = session->dataTask(requestFor(url), [&](auto&&... outcome) {
      inHandler = task->countOfBytesReceived().value_or(-1);
      waiter.handler()(std::forward<decltype(outcome)>(outcome)...);
    });
    EXPECT_EQ(task->countOfBytesReceived(), 0);
    task->resume();
    reply_ = waiter.wait();
    EXPECT_EQ(inHandler, task->countOfBytesReceived().value_or(-1));
    return task->countOfBytesReceived();
  }

  Count countOfTLS(Behaviour behaviour) {
    server.enqueue(std::move(behaviour));
    return countOf(front_.url());
  }

  Count countOfPlain(Behaviour behaviour) {
    server.enqueue(std::move(behaviour));
    return countOf(server.url());
  }

  // The server sends these bytes, and resets the connection once the task knows of them: what is
  // not read by then is thrown away on the way.
  Count countOfReset(const std::string& bytes) {
    const Event isKnown;
    server.enqueue([bytes, isKnown](LoopbackConnection& connection, const CapturedRequest&) {
      connection.send(bytes);
      isKnown.wait();
      return Afterwards::kReset;
    });
    const ReplyWaiter waiter;
    const auto task = session->dataTask(requestFor(front_.url()), waiter.handler());
    task->resume();
    EXPECT_TRUE(comesTrue([&] { return task->countOfBytesReceived() != 0; }));
    isKnown.happen();
    reply_ = waiter.wait();
    return task->countOfBytesReceived();
  }

  static bool comesTrue(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition() && std::chrono::steady_clock::now() < limit)
      std::this_thread::yield();
    return condition();
  }

  void expectLost() { EXPECT_EQ(codeOf(reply_), qvr::NSURLErrorNetworkConnectionLost); }

  TestCertificates certificates_;
  const TLSFront front_{server, certificates_.valid()};
  Reply reply_;
};

TEST_F(CurlSessionByteCountTest, IsThatOfTheWholeAnswer) {
  const std::string whole = std::string(kHead) + "some body";
  const auto size = static_cast<std::int64_t>(whole.size());
  EXPECT_EQ(countOfTLS(rawAnswer(whole)), size);
  EXPECT_EQ(reply_.body(), "some body");
  EXPECT_EQ(countOfPlain(rawAnswer(whole)), size);
  EXPECT_EQ(countOfTLS(answer(204)), 25);
}

TEST_F(CurlSessionByteCountTest, IsZeroWhenTheConnectionIsLostBeforeAByte) {
  EXPECT_EQ(countOfTLS(rawAnswer("")), 0);
  expectLost();
  EXPECT_EQ(countOfTLS(rawAnswer("", Afterwards::kReset)), 0);
  expectLost();
}

TEST_F(CurlSessionByteCountTest, IsUnknownWhenAPartOfTheStatusLineCame) {
  for (const char* const part : {"H", "HTT", "HTTP/1.1 200 O"}) {
    EXPECT_EQ(countOfTLS(rawAnswer(part)), std::nullopt) << part;
    expectLost();
    EXPECT_EQ(countOfReset(part), std::nullopt) << part;
    expectLost();
  }
}

TEST_F(CurlSessionByteCountTest, IsThatOfTheWholeLinesWhenTheHeadersBreakOff) {
  EXPECT_EQ(countOfReset(std::string(kStatusLine) + "Content-"),
            static_cast<std::int64_t>(kStatusLine.size()));
  expectLost();
}

TEST_F(CurlSessionByteCountTest, IsThatOfTheBytesBeforeTheBodyBreaksOff) {
  const auto size = static_cast<std::int64_t>(kHead.size());
  EXPECT_EQ(countOfTLS(rawAnswer(std::string(kHead))), size);
  expectLost();
  EXPECT_EQ(countOfTLS(rawAnswer(std::string(kHead) + "some")), size + 4);
  expectLost();
  EXPECT_EQ(countOfPlain(rawAnswer(std::string(kHead) + "some")), size + 4);
  expectLost();
}

TEST_F(CurlSessionByteCountTest, IsUnknownOverPlainHTTPWhenNoWholeLineCame) {
  for (const char* const part : {"", "HTT"}) {
    EXPECT_EQ(countOfPlain(rawAnswer(part)), std::nullopt) << part;
    expectLost();
  }
}

TEST_F(CurlSessionByteCountTest, IsZeroWhenNothingWasSent) {
  const TLSFront hangsUp(server, certificates_.valid(), TLSFront::Policy::kHangsUpInHandshake);
  EXPECT_EQ(countOf(hangsUp.url()), 0);
  expectLost();
  EXPECT_EQ(countOf("https://127.0.0.1:1/"), 0);
  EXPECT_EQ(codeOf(reply_), qvr::NSURLErrorCannotConnectToHost);
  EXPECT_EQ(countOf("m.x://auth"), 0);
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(CurlSessionByteCountTest, CanBeReadWhileTheAnswerIsOnItsWay) {
  server.enqueue(rawAnswer(std::string(kHead) + "some", Afterwards::kHang));
  const ReplyWaiter waiter;
  const auto task = session->dataTask(requestFor(front_.url()), waiter.handler());
  task->resume();
  const Count all = static_cast<std::int64_t>(kHead.size()) + 4;
  EXPECT_TRUE(comesTrue([&] { return task->countOfBytesReceived() == all; }));
  EXPECT_EQ(waiter.now().calls, 0);
  task->cancel();
  waiter.wait();
  EXPECT_EQ(task->countOfBytesReceived(), all);
}

TEST_F(CurlSessionByteCountTest, IsZeroWhenASilentServerIsGivenUp) {
  options.idleTimeoutSeconds = 0.3;
  session = qvr::makeURLSession(options);
  EXPECT_EQ(countOfTLS(rawAnswer("", Afterwards::kHang)), 0);
  EXPECT_EQ(codeOf(reply_), qvr::NSURLErrorTimedOut);
}

// The server sees the request twice and the task cannot know; the header of the session says so.
TEST_F(CurlSessionByteCountTest, ARequestIsRepeatedByItselfOnlyOnAConnectionThatServedBefore) {
  EXPECT_EQ(countOfTLS(rawAnswer("")), 0);
  EXPECT_EQ(server.requests().size(), 1u) << "the first request of a session was repeated";
  countOfTLS(answer(200, "{}"));
  server.enqueue(rawAnswer("HTT"));
  EXPECT_EQ(countOfTLS(rawAnswer("")), std::nullopt) << "what came before the repeat is forgotten";
  EXPECT_EQ(server.requests().size(), 4u);
}

TEST_F(CurlSessionByteCountTest, IsUnknownInHTTP2WhenNoHeadersCame) {
  const HTTP2Server resets(certificates_.valid(), HTTP2Server::Policy::kResetsStreams);
  EXPECT_EQ(countOf(resets.url()), std::nullopt);
  expectLost();
  const HTTP2Server answers(certificates_.valid());
  const Count count = countOf(answers.url());
  EXPECT_GT(count, static_cast<std::int64_t>(reply_.body().size()));
}

// What OpenSSL shows of a record: its header, and in TLS 1.3 then its true type.
class TracedByteCountTest : public testing::Test {
 protected:
  void trace(curl_infotype kind, std::string_view bytes) { count_.noteTrace(kind, bytes); }
  void receive(std::string_view bytes) { trace(CURLINFO_SSL_DATA_IN, bytes); }
  void sendRequest(std::string_view head = "POST /token HTTP/1.1\r\nHost: a\r\n\r\n") {
    trace(CURLINFO_SSL_DATA_OUT, kDataHeader);
    trace(CURLINFO_HEADER_OUT, head);
  }

  Count count() {
    count_.publish();
    return count_.value();
  }

  static constexpr std::string_view kDataHeader{"\x17\x03\x03\x00\xFA", 5};
  static constexpr std::string_view kAlertHeader{"\x15\x03\x03\x00\x1A", 5};
  static constexpr std::string_view kIsData = "\x17";
  static constexpr std::string_view kIsHandshake = "\x16";
  static constexpr std::string_view kIsAlert = "\x15";

  qvr::CurlSessionByteCount count_;
};

TEST_F(TracedByteCountTest, IsZeroAfterRecordsOfTheHandshakeAndAlerts) {
  sendRequest();
  for (const std::string_view type : {kIsHandshake, kIsHandshake, kIsAlert}) {
    receive(kDataHeader);
    receive(type);
    receive("the message");
  }
  receive(kAlertHeader);
  EXPECT_EQ(count(), 0);
}

TEST_F(TracedByteCountTest, IsUnknownOnceARecordWithDataHasBegun) {
  sendRequest();
  receive(kDataHeader);
  EXPECT_EQ(count(), std::nullopt) << "of TLS 1.2, or of 1.3 and not decrypted yet";
  receive(kIsHandshake);
  EXPECT_EQ(count(), 0);
  receive(kDataHeader);
  receive(kIsData);
  EXPECT_EQ(count(), std::nullopt);
  receive(kDataHeader);
  receive(kIsHandshake);
  EXPECT_EQ(count(), std::nullopt);
  count_.noteReceived(17);
  EXPECT_EQ(count(), 17);
}

TEST_F(TracedByteCountTest, RemembersTheDataOfTLS12WhenAnotherRecordFollows) {
  sendRequest();
  receive(kDataHeader);
  receive(kDataHeader);
  receive(kIsAlert);
  EXPECT_EQ(count(), std::nullopt);
}

TEST_F(TracedByteCountTest, IsSeenByOthersOnceItIsPublished) {
  count_.noteReceived(17);
  EXPECT_EQ(count_.value(), 0);
  count_.publish();
  EXPECT_EQ(count_.value(), 17);
}

TEST_F(TracedByteCountTest, IsUnknownWhereTheTraceShowsNoRecords) {
  trace(CURLINFO_HEADER_OUT, "POST /token HTTP/1.1\r\n\r\n");
  EXPECT_EQ(count(), std::nullopt);
  trace(CURLINFO_TEXT, "some text");
  EXPECT_EQ(count(), std::nullopt);
}

TEST_F(TracedByteCountTest, IsUnknownInOtherVersionsThanHTTP1) {
  sendRequest("POST /token HTTP/2\r\nX: HTTP/1.1\r\n\r\n");
  EXPECT_EQ(count(), std::nullopt);
}

TEST_F(TracedByteCountTest, TakesTheVersionOfTheRequestThroughATunnel) {
  trace(CURLINFO_HEADER_OUT, "CONNECT a:443 HTTP/1.1\r\nHost: a:443\r\n\r\n");
  sendRequest("POST /token HTTP/2\r\n\r\n");
  EXPECT_EQ(count(), std::nullopt);
}

TEST_F(TracedByteCountTest, KeepsTheVersionWhenTheHeadIsSentInParts) {
  sendRequest("POST /token HTTP/1.1\r\nHost: a\r\n");
  sendRequest("X: y\r\n\r\n");
  EXPECT_EQ(count(), 0);
}

}  // namespace
}  // namespace support
