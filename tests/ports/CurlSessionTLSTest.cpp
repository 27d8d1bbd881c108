// TLS: what the session verifies, what it refuses and how it says so, and HTTP/2.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/ports/CurlSessionFixture.h"
#include "tests/support/TLSFront.h"

namespace support {
namespace {

constexpr std::string_view kHandshake =
    "An SSL error has occurred and a secure connection to the server cannot be made.";
constexpr std::string_view kInvalid = "The certificate for this server is invalid.";

class CurlSessionTLSTest : public CurlSessionTest {
 protected:
  CurlSessionTLSTest() { trust(certificates.authorityFile()); }

  void trust(const std::string& file) {
    options.certificateAuthorityFile = file;
    session = qvr::makeURLSession(options);
  }

  void expectRefusal(const TLSFront& front, std::int64_t code, std::string_view description) {
    qvr::URLRequest request = requestFor(front.url("/token"));
    request.HTTPMethod = "POST";
    request.HTTPBody = {'s'};
    EXPECT_THAT(send(std::move(request)).error,
                IsErrorWithUserInfo(qvr::NSURLErrorDomain, code,
                                    failureOf(front.url("/token"), description)));
    EXPECT_TRUE(server.requests().empty()) << "the request reached a server that is not trusted";
  }

  TestCertificates certificates;
};

TEST_F(CurlSessionTLSTest, TalksToAServerWithATrustedCertificate) {
  const TLSFront front(server, certificates.valid());
  const Reply reply = get(front.url("/path"));
  EXPECT_EQ(reply.body(), "{}");
  EXPECT_EQ(server.requests().at(0).requestLine(), "GET /path HTTP/1.1");
}

TEST_F(CurlSessionTLSTest, ReusesTheConnection) {
  const TLSFront front(server, certificates.valid());
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(get(front.url()).body(), "{}");
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(CurlSessionTLSTest, TellsAnExpiredCertificate) {
  expectRefusal(TLSFront(server, certificates.expired()),
                qvr::NSURLErrorServerCertificateHasBadDate,
                "The certificate for this server has expired.");
}

TEST_F(CurlSessionTLSTest, TellsACertificateThatIsNotYetValid) {
  expectRefusal(TLSFront(server, certificates.notYetValid()),
                qvr::NSURLErrorServerCertificateNotYetValid,
                "The certificate for this server is not yet valid.");
}

TEST_F(CurlSessionTLSTest, RefusesASelfSignedCertificate) {
  expectRefusal(TLSFront(server, certificates.selfSigned()),
                qvr::NSURLErrorServerCertificateUntrusted, kInvalid);
}

TEST_F(CurlSessionTLSTest, RefusesACertificateForAnotherHost) {
  expectRefusal(TLSFront(server, certificates.forAnotherHost()),
                qvr::NSURLErrorServerCertificateUntrusted, kInvalid);
}

TEST_F(CurlSessionTLSTest, RefusesAnAuthorityThatTheSystemDoesNotTrust) {
  trust("");
  expectRefusal(TLSFront(server, certificates.valid()), qvr::NSURLErrorServerCertificateUntrusted,
                kInvalid);
}

TEST_F(CurlSessionTLSTest, TrustsTheGivenAuthorityInPlaceOfTheSystems) {
  trust(certificates.selfSigned().file);
  expectRefusal(TLSFront(server, certificates.valid()), qvr::NSURLErrorServerCertificateUntrusted,
                kInvalid);
}

TEST_F(CurlSessionTLSTest, TellsAnAuthorityFileThatCannotBeRead) {
  trust("/nonexistent/authority.pem");
  const TLSFront front(server, certificates.valid());
  const Reply reply = get(front.url());
  EXPECT_EQ(codeOf(reply), qvr::NSURLErrorSecureConnectionFailed);
  EXPECT_EQ(reply.error->localizedDescription(), kHandshake);
  EXPECT_NE(reply.error->userInfoValue(qvr::NSDebugDescriptionErrorKey), nullptr);
}

TEST_F(CurlSessionTLSTest, RefusesTLS11) {
  expectRefusal(TLSFront(server, certificates.valid(), TLSFront::Policy::kAtMostTLS11),
                qvr::NSURLErrorSecureConnectionFailed, kHandshake);
}

TEST_F(CurlSessionTLSTest, TellsAServerThatWantsAClientCertificate) {
  expectRefusal(TLSFront(server, certificates.valid(), TLSFront::Policy::kWantsClientCertificate),
                qvr::NSURLErrorClientCertificateRequired,
                "The server requires a client certificate.");
}

TEST_F(CurlSessionTLSTest, TellsAServerThatHangsUpInTheHandshake) {
  expectRefusal(TLSFront(server, certificates.valid(), TLSFront::Policy::kHangsUpInHandshake),
                qvr::NSURLErrorNetworkConnectionLost, "The network connection was lost.");
}

TEST_F(CurlSessionTLSTest, TellsAServerThatDoesNotSpeakTLS) {
  expectRefusal(TLSFront(server, certificates.valid(), TLSFront::Policy::kAnswersInPlainText),
                qvr::NSURLErrorSecureConnectionFailed, kHandshake);
}

TEST_F(CurlSessionTLSTest, ReadsTheAuthorityFileOnceForAllConnections) {
  const TLSFront front(server, certificates.valid());
  const TemporaryFolder folder;
  std::ostringstream authority;
  authority << std::ifstream(certificates.authorityFile()).rdbuf();
  const std::string file = folder.write("authority.pem", authority.str());
  trust(file);
  for (int i = 0; i < 3; ++i) {
    server.enqueue(rawAnswer("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"));
    EXPECT_EQ(get(front.url()).body(), "{}");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    std::filesystem::remove(file);
  }
  EXPECT_EQ(server.connectionCount(), 3u);
}

TEST_F(CurlSessionTLSTest, TellsConnectionsLostOverTLS) {
  const TLSFront front(server, certificates.valid());
  const Behaviour losses[] = {
      rawAnswer(""), rawAnswer("", Afterwards::kReset),
      rawAnswer("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf"),
      rawAnswer("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", Afterwards::kReset)};
  for (const Behaviour& loss : losses) {
    server.enqueue(loss);
    EXPECT_EQ(codeOf(get(front.url())), qvr::NSURLErrorNetworkConnectionLost);
  }
}

TEST_F(CurlSessionTLSTest, SpeaksHTTP2WhereItIsOffered) {
  const HTTP2Server modern(certificates.valid());
  const Reply reply = get(modern.url());
  ASSERT_TRUE(reply.response);
  EXPECT_EQ(reply.response->statusCode, 200);
  EXPECT_EQ(reply.body(), "HTTP/2 connection 1");
}

TEST_F(CurlSessionTLSTest, KeepsToHTTP11WhenToldTo) {
  const HTTP2Server modern(certificates.valid());
  options.usesHTTP2 = false;
  trust(certificates.authorityFile());
  EXPECT_EQ(get(modern.url()).body(), "HTTP/1.1");
}

TEST_F(CurlSessionTLSTest, ResumesTheTLSSessionOfAnEarlierConnection) {
  const HTTP2Server modern(certificates.valid());
  options.usesHTTP2 = false;
  trust(certificates.authorityFile());
  EXPECT_EQ(get(modern.url()).body(), "HTTP/1.1");
  EXPECT_EQ(get(modern.url()).body(), "HTTP/1.1 resumed");
  trust(certificates.authorityFile());
  EXPECT_EQ(get(modern.url()).body(), "HTTP/1.1") << "a session took over another one's trust";
}

TEST_F(CurlSessionTLSTest, ReusesTheHTTP2Connection) {
  const HTTP2Server modern(certificates.valid());
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(get(modern.url()).body(), "HTTP/2 connection 1");
}

TEST_F(CurlSessionTLSTest, SharesOneHTTP2ConnectionBetweenRequests) {
  const HTTP2Server modern(certificates.valid(), HTTP2Server::Policy::kAnswersInPairs);
  EXPECT_EQ(get(modern.url()).body(), "HTTP/2 connection 1");
  for (int round = 0; round < 20; ++round) {
    const ReplyWaiter waiters[2];
    for (const ReplyWaiter& waiter : waiters)
      session->dataTask(requestFor(modern.url()), waiter.handler())->resume();
    for (const ReplyWaiter& waiter : waiters)
      EXPECT_EQ(waiter.wait().body(), "HTTP/2 connection 1");
  }
}

TEST_F(CurlSessionTLSTest, AnswersEveryOneOfManyHTTP2RequestsAtOnce) {
  const HTTP2Server modern(certificates.valid());
  const double seconds = secondsOf([&] {
    for (int round = 0; round < 5; ++round) {
      std::vector<ReplyWaiter> waiters(12);
      for (const ReplyWaiter& waiter : waiters)
        session->dataTask(requestFor(modern.url()), waiter.handler())->resume();
      for (const ReplyWaiter& waiter : waiters)
        EXPECT_THAT(waiter.wait().body(), testing::MatchesRegex("HTTP/2 connection [1-6]"));
    }
  });
  EXPECT_LT(seconds, 15) << "an answer lay unread";
}

TEST_F(CurlSessionTLSTest, TellsAnHTTP2StreamThatIsReset) {
  const HTTP2Server modern(certificates.valid(), HTTP2Server::Policy::kResetsStreams);
  EXPECT_EQ(codeOf(get(modern.url())), qvr::NSURLErrorNetworkConnectionLost);
}

TEST_F(CurlSessionTLSTest, CancelsAmidHandshakes) {
  const TLSFront front(server, certificates.valid());
  for (int round = 0; round < 30; ++round) {
    session = qvr::makeURLSession(options);
    const ReplyWaiter waiter;
    const auto task = session->dataTask(requestFor(front.url()), waiter.handler());
    task->resume();
    for (int spin = 0; spin < round * 3000; ++spin)
      static_cast<void>(task->state());
    task->cancel();
    const Reply reply = waiter.wait();
    EXPECT_TRUE(codeOf(reply) == qvr::NSURLErrorCancelled || reply.body() == "{}");
  }
}

}  // namespace
}  // namespace support
