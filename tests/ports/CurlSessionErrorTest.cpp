// Transport errors over plain HTTP: what goes wrong on a real connection, and what the handler is
// told.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "tests/ports/CurlSessionFixture.h"
#include "tests/support/ChildProcess.h"

namespace support {
namespace {

constexpr std::string_view kLost = "The network connection was lost.";
constexpr std::string_view kNotHTTP = "cannot parse response";

class CurlSessionErrorTest : public CurlSessionTest {
 protected:
  void expectFailure(const Reply& reply, const std::string& url, std::int64_t code,
                     std::string_view description) {
    EXPECT_THAT(reply.error,
                IsErrorWithUserInfo(qvr::NSURLErrorDomain, code, failureOf(url, description)));
    EXPECT_FALSE(reply.data) << "data is absent exactly on a transport error";
    EXPECT_FALSE(reply.response);
    EXPECT_EQ(reply.calls, 1);
  }

  void expectFailureAfter(Behaviour behaviour, std::int64_t code, std::string_view description) {
    expectFailure(getAnswered(std::move(behaviour)), server.url(), code, description);
  }
};

TEST_F(CurlSessionErrorTest, RefusesEverySchemeButHTTPAndHTTPS) {
  const char* const urls[] = {"ftp://127.0.0.1/x", "file:///etc/passwd", "m.x://auth",
                              "127.0.0.1/x",       ":/oauth2/auth",      "gopher://127.0.0.1:1/"};
  for (const char* const url : urls)
    expectFailure(get(url), url, qvr::NSURLErrorUnsupportedURL, "unsupported URL");
}

TEST_F(CurlSessionErrorTest, TakesTheSchemeInAnyCase) {
  std::string url = server.url();
  url.replace(0, 4, "HTTP");
  EXPECT_EQ(get(url).body(), "{}");
}

TEST_F(CurlSessionErrorTest, CallsAURLWithoutAHostOrWithAnImpossiblePortMalformed) {
  const char* const urls[] = {"http:///path", "http:/path", "https:opaque", "http://",
                              "http://127.0.0.1:99999/"};
  for (const char* const url : urls)
    expectFailure(get(url), url, qvr::NSURLErrorBadURL, "bad URL");
}

TEST_F(CurlSessionErrorTest, TellsARefusedConnection) {
  // Bound and not listening, so that nobody else can take the port meanwhile.
  const int reserved = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(reserved, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::getsockname(reserved, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
  expectFailure(get(url), url, qvr::NSURLErrorCannotConnectToHost,
                "Could not connect to the server.");
  ::close(reserved);
}

TEST_F(CurlSessionErrorTest, TellsThatThereIsNoRoute) {
  // No TCP connection can be made to a multicast address: the system refuses it as unreachable.
  const std::string url = "http://224.0.0.1:9/";
  expectFailure(get(url), url, qvr::NSURLErrorNotConnectedToInternet,
                "The Internet connection appears to be offline.");
}

TEST_F(CurlSessionErrorTest, TellsAConnectionThatIsClosedBeforeAnyAnswer) {
  expectFailureAfter(rawAnswer(""), qvr::NSURLErrorNetworkConnectionLost, kLost);
}

TEST_F(CurlSessionErrorTest, TellsAConnectionThatIsReset) {
  expectFailureAfter(rawAnswer("", Afterwards::kReset), qvr::NSURLErrorNetworkConnectionLost,
                     kLost);
}

TEST_F(CurlSessionErrorTest, TellsABodyThatBreaksOff) {
  const char* const replies[] = {
      "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\nhalf",
  };
  for (const char* const reply : replies)
    expectFailureAfter(rawAnswer(reply), qvr::NSURLErrorNetworkConnectionLost, kLost);
}

// Not an empty answer, which would be one that cannot be read.
TEST_F(CurlSessionErrorTest, TellsHeadersThatBreakOff) {
  const char* const replies[] = {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent",
                                 "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nA: b\r\n"};
  for (const char* const reply : replies)
    expectFailureAfter(rawAnswer(reply), qvr::NSURLErrorNetworkConnectionLost, kLost);
}

TEST_F(CurlSessionErrorTest, TellsAReplyThatIsNotHTTP) {
  const char* const replies[] = {"220 mail.example ESMTP\r\n", "\x16\x03\x01garbage",
                                 "HTTP/7.3 200 OK\r\n\r\n", "<html></html>"};
  for (const char* const reply : replies)
    expectFailureAfter(rawAnswer(reply), qvr::NSURLErrorCannotParseResponse, kNotHTTP);
}

TEST_F(CurlSessionErrorTest, TellsABodyThatIsNotEncodedAsItSays) {
  expectFailureAfter(answer(200, "this is not gzip", {{"Content-Encoding", "gzip"}}),
                     qvr::NSURLErrorCannotDecodeRawData, "cannot decode raw data");
}

TEST_F(CurlSessionErrorTest, RefusesABodyOverOneMebibyteAndDropsTheConnection) {
  const std::string body((1 << 20) + 1, 'x');
  expectFailureAfter(answer(200, body), qvr::NSURLErrorDataLengthExceedsMaximum,
                     "resource exceeds maximum size");
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(CurlSessionErrorTest, StopsReadingABodyThatNeverEnds) {
  Event hasStopped;
  const Reply reply = getAnswered([&](LoopbackConnection& connection, const CapturedRequest&) {
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send(std::string(1 << 16, 'x'))) {
    }
    hasStopped.happen();
    return Afterwards::kClose;
  });
  EXPECT_EQ(codeOf(reply), qvr::NSURLErrorDataLengthExceedsMaximum);
  EXPECT_TRUE(hasStopped.wait());
}

TEST_F(CurlSessionErrorTest, StopsReadingHeadersThatNeverEnd) {
  const Reply reply = getAnswered([](LoopbackConnection& connection, const CapturedRequest&) {
    connection.send("HTTP/1.1 200 OK\r\n");
    while (connection.send("X-Filler: " + std::string(8000, 'x') + "\r\n")) {
    }
    return Afterwards::kClose;
  });
  ASSERT_TRUE(reply.error) << "a reply without end was taken";
  EXPECT_FALSE(reply.data);
}

TEST_F(CurlSessionErrorTest, CountsTheDecodedBytesOfACompressedBody) {
  ChildProcess compressor(
      {{"python3", "-c",
        "import gzip, sys; sys.stdout.buffer.write(gzip.compress(bytes(2 << 20)))"},
       {}});
  ASSERT_EQ(compressor.wait(), 0);
  ASSERT_LT(compressor.output().size(), 10000u);
  const Reply reply = getAnswered(answer(200, compressor.output(), {{"Content-Encoding", "gzip"}}));
  EXPECT_EQ(codeOf(reply), qvr::NSURLErrorDataLengthExceedsMaximum);
}

TEST_F(CurlSessionErrorTest, GoesOnAfterAFailure) {
  EXPECT_EQ(codeOf(getAnswered(rawAnswer(""))), qvr::NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(get(server.url()).body(), "{}");
}

}  // namespace
}  // namespace support
