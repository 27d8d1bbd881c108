// What the session puts on the wire, and what it makes of what comes back.
#include <string>
#include <vector>

#include "tests/ports/CurlSessionFixture.h"

namespace support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

class CurlSessionMessageTest : public CurlSessionTest {
 protected:
  qvr::URLRequest tokenRequest(const std::string& body) const {
    qvr::URLRequest request = requestFor(server.url("/token"));
    request.HTTPMethod = "POST";
    request.addValue("application/x-www-form-urlencoded", "Content-Type");
    request.HTTPBody = bytes(body);
    return request;
  }

  static qvr::Data bytes(std::string_view text) { return {text.begin(), text.end()}; }

  CapturedRequest onlyRequest() const {
    EXPECT_EQ(server.requests().size(), 1u);
    return server.requests().at(0);
  }
};

TEST_F(CurlSessionMessageTest, PostsTheBodyByteForByte) {
  std::string body = "grant_type=refresh_token&x=";
  for (int byte = 0; byte < 256; ++byte)
    body.push_back(static_cast<char>(byte));
  send(tokenRequest(body));
  EXPECT_EQ(onlyRequest().requestLine(), "POST /token HTTP/1.1");
  EXPECT_EQ(onlyRequest().body, body);
  EXPECT_EQ(onlyRequest().header("Content-Length"), std::to_string(body.size()));
}

TEST_F(CurlSessionMessageTest, PostsAnEmptyBodyWithItsLength) {
  send(tokenRequest(""));
  EXPECT_EQ(onlyRequest().requestLine(), "POST /token HTTP/1.1");
  EXPECT_EQ(onlyRequest().header("Content-Length"), "0");
}

TEST_F(CurlSessionMessageTest, SendsALargeBodyWithoutAskingFirst) {
  const std::string body(3 << 20, 'b');
  const Reply reply = send(tokenRequest(body));
  EXPECT_EQ(reply.body(), "{}");
  EXPECT_EQ(onlyRequest().body, body);
  EXPECT_EQ(onlyRequest().header("Expect"), std::nullopt);
}

TEST_F(CurlSessionMessageTest, SendsTheHeadersInTheirOrderAndSpelling) {
  qvr::URLRequest request = requestFor(server.url());
  request.headers = {{"X-Zulu", "1"},
                     {"accept", "application/json"},
                     {"X-alpha", "two words"},
                     {"User-Agent", "tests"},
                     {"X-Empty", ""}};
  send(std::move(request));
  qvr::HTTPHeaders headers = onlyRequest().headers();
  std::erase_if(headers, [](const auto& header) {
    return header.first == "Host" || header.first == "Accept-Encoding";
  });
  EXPECT_THAT(headers, ElementsAre(Pair("X-Zulu", "1"), Pair("accept", "application/json"),
                                   Pair("X-alpha", "two words"), Pair("User-Agent", "tests"),
                                   Pair("X-Empty", "")));
}

TEST_F(CurlSessionMessageTest, AddsNoHeaderButThoseOfTheConnection) {
  qvr::URLRequest request = requestFor(server.url());
  request.HTTPMethod = "POST";
  request.HTTPBody = bytes("a=b");
  send(std::move(request));
  std::vector<std::string> names;
  for (const auto& header : onlyRequest().headers())
    names.push_back(header.first);
  EXPECT_THAT(names, ElementsAre("Host", "Accept-Encoding", "User-Agent", "Content-Length"));
  EXPECT_EQ(onlyRequest().header("User-Agent"), "QVROAuth2Client/1.0");
}

TEST_F(CurlSessionMessageTest, SendsTheMethodAsGiven) {
  const char* const methods[] = {"GET", "HEAD", "PUT", "DELETE", "PATCH", "OPTIONS"};
  for (const char* const method : methods) {
    qvr::URLRequest request = requestFor(server.url("/m"));
    request.HTTPMethod = method;
    if (std::string_view(method) == "PUT") request.HTTPBody = bytes("put");
    server.enqueue(answer(204));
    EXPECT_EQ(codeOf(send(std::move(request))), 0) << method;
    EXPECT_EQ(server.requests().back().requestLine(), std::string(method) + " /m HTTP/1.1");
  }
  EXPECT_EQ(server.requests().at(2).body, "put");
}

TEST_F(CurlSessionMessageTest, KeepsNothingOfARequestForTheNextOne) {
  qvr::URLRequest first = tokenRequest("refresh_token=first");
  first.headers.emplace_back("X-First", "1");
  send(std::move(first));
  qvr::URLRequest head = requestFor(server.url("/head"));
  head.HTTPMethod = "HEAD";
  server.enqueue(answer(204));
  send(std::move(head));
  send(tokenRequest(""));
  EXPECT_EQ(get(server.url("/last")).body(), "{}");
  const std::vector<CapturedRequest> requests = server.requests();
  ASSERT_EQ(requests.size(), 4u);
  for (std::size_t i = 1; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].body, "");
    EXPECT_EQ(requests[i].header("X-First"), std::nullopt);
  }
  EXPECT_EQ(requests[1].requestLine(), "HEAD /head HTTP/1.1");
  EXPECT_EQ(requests[1].header("Content-Type"), std::nullopt);
  EXPECT_EQ(requests[2].header("Content-Length"), "0");
  EXPECT_EQ(requests[3].requestLine(), "GET /last HTTP/1.1");
  EXPECT_EQ(requests[3].header("Content-Length"), std::nullopt);
}

TEST_F(CurlSessionMessageTest, SendsPathAndQueryAsWritten) {
  get(server.url("/a/../b/./c%2fd?q=%20+&x=/../#fragment"));
  EXPECT_EQ(onlyRequest().requestLine(), "GET /a/../b/./c%2fd?q=%20+&x=/../ HTTP/1.1");
}

TEST_F(CurlSessionMessageTest, ReportsStatusHeadersInWireOrderAndBody) {
  const Reply reply = getAnswered(rawAnswer(
      "HTTP/1.1 400 Bad Request\r\nX-B:  two \r\nContent-Length: 5\r\nX-A: 1\r\nX-B: three\r\n"
      "X-Empty:\r\nX-Colons: a:b: c\r\n\r\nhello"));
  EXPECT_EQ(reply.error, nullptr);
  ASSERT_TRUE(reply.response);
  EXPECT_EQ(reply.response->statusCode, 400);
  EXPECT_THAT(reply.response->headers,
              ElementsAre(Pair("X-B", "two"), Pair("Content-Length", "5"), Pair("X-A", "1"),
                          Pair("X-B", "three"), Pair("X-Empty", ""), Pair("X-Colons", "a:b: c")));
  EXPECT_EQ(reply.body(), "hello");
}

TEST_F(CurlSessionMessageTest, KeepsTheHeadersOfTheFinalResponseOnly) {
  const Reply reply = getAnswered(rawAnswer(
      "HTTP/1.1 103 Early Hints\r\nX-Early: yes\r\n\r\n"
      "HTTP/1.1 200 OK\r\nX-Final: yes\r\nTransfer-Encoding: chunked\r\nTrailer: X-Late\r\n\r\n"
      "2\r\nok\r\n0\r\nX-Late: yes\r\n\r\n"));
  ASSERT_TRUE(reply.response);
  EXPECT_EQ(reply.response->statusCode, 200);
  EXPECT_EQ(reply.body(), "ok");
  EXPECT_THAT(reply.response->headers,
              ElementsAre(Pair("X-Final", "yes"), Pair("Transfer-Encoding", "chunked"),
                          Pair("Trailer", "X-Late")));
}

TEST_F(CurlSessionMessageTest, HandsOverEmptyPresentDataForAReplyWithoutABody) {
  for (const int status : {200, 204, 304, 500}) {
    const Reply reply = getAnswered(answer(status));
    ASSERT_TRUE(reply.response) << status;
    EXPECT_EQ(reply.response->statusCode, status);
    ASSERT_TRUE(reply.data) << status;
    EXPECT_THAT(*reply.data, IsEmpty());
    EXPECT_EQ(reply.error, nullptr);
  }
}

TEST_F(CurlSessionMessageTest, FollowsNoRedirect) {
  for (const int status : {301, 302, 303, 307, 308}) {
    const std::size_t sentBefore = server.requests().size();
    qvr::URLRequest request = tokenRequest("refresh_token=r");
    server.enqueue(answer(status, "moved", {{"Location", server.url("/elsewhere")}}));
    const Reply reply = send(std::move(request));
    ASSERT_TRUE(reply.response);
    EXPECT_EQ(reply.response->statusCode, status);
    EXPECT_EQ(reply.body(), "moved");
    EXPECT_EQ(server.requests().size(), sentBefore + 1);
  }
}

TEST_F(CurlSessionMessageTest, SendsNoCookieBack) {
  getAnswered(answer(200, "", {{"Set-Cookie", "session=1; Path=/"}}));
  get(server.url());
  ASSERT_EQ(server.requests().size(), 2u);
  EXPECT_EQ(server.requests().at(1).header("Cookie"), std::nullopt);
}

TEST_F(CurlSessionMessageTest, CachesNothing) {
  const qvr::HTTPHeaders forever = {{"Cache-Control", "max-age=3600"}, {"ETag", "\"1\""}};
  EXPECT_EQ(getAnswered(answer(200, "first", forever)).body(), "first");
  EXPECT_EQ(getAnswered(answer(200, "second", forever)).body(), "second");
  EXPECT_EQ(server.requests().at(1).header("If-None-Match"), std::nullopt);
}

TEST_F(CurlSessionMessageTest, DecodesACompressedBody) {
  // "hello" by gzip (RFC 1952).
  const std::string hello(
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x07\x00\x86\xa6\x10\x36\x05"
      "\x00\x00\x00",
      25);
  EXPECT_EQ(getAnswered(answer(200, hello, {{"Content-Encoding", "gzip"}})).body(), "hello");
}

TEST_F(CurlSessionMessageTest, TakesABodyOfExactlyOneMebibyte) {
  const std::string body(1 << 20, 'm');
  EXPECT_EQ(getAnswered(answer(200, body)).body(), body);
}

TEST_F(CurlSessionMessageTest, GoesThroughTheProxyOfTheEnvironment) {
  ::setenv("no_proxy", "", 1);
  ::setenv("http_proxy", server.url("").c_str(), 1);
  const Reply reply = get("http://mail.example/token");
  ::unsetenv("http_proxy");
  EXPECT_EQ(reply.body(), "{}");
  EXPECT_EQ(onlyRequest().requestLine(), "GET http://mail.example/token HTTP/1.1");
  EXPECT_EQ(onlyRequest().header("Host"), "mail.example");
}

TEST_F(CurlSessionMessageTest, RefusesHeadersAndMethodsThatWouldNotStayOnTheirLine) {
  std::vector<qvr::URLRequest> requests(5, requestFor(server.url()));
  requests[0].headers = {{"X-A", "1\r\nX-Injected: 1"}};
  requests[1].headers = {{"X-A", std::string("1\0", 2)}};
  requests[2].headers = {{"X-A: 1\nX-Injected", "1"}};
  requests[3].HTTPMethod = "GET / HTTP/1.1\r\nX-Injected: 1\r\n\r\nGET";
  requests[4].HTTPMethod = "";
  for (const qvr::URLRequest& request : requests)
    EXPECT_EQ(codeOf(send(request)), qvr::NSURLErrorUnknown);
  EXPECT_THAT(server.requests(), IsEmpty());
}

}  // namespace
}  // namespace support
