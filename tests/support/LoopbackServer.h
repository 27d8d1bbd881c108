// An HTTP/1.1 server on 127.0.0.1 whose behaviour a test scripts, request by request, and which
// keeps the exact bytes it was sent. Put a TLSFront before it for https.
//
//   LoopbackServer server;
//   server.enqueue(answer(400, R"({"error":"invalid_grant"})"));
//   ... send a request to server.url("/token") ...
//   EXPECT_EQ(server.requests().at(0).body, "grant_type=refresh_token");
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "QVROAuth2Client/platform/URLSession.h"

namespace support {

struct CapturedRequest {
  std::size_t connection = 0;  // which one it came on, counted from 0
  std::string head;            // request line and headers as sent, with the blank line
  std::string body;

  std::string requestLine() const;
  qvr::HTTPHeaders headers() const;
  qvr::Text header(std::string_view field) const;  // the first with this name, in any case
};

// A connection as a behaviour sees it.
class LoopbackConnection {
 public:
  explicit LoopbackConnection(int descriptor) : descriptor_(descriptor) {}

  // False when the peer is gone.
  bool send(std::string_view bytes);

  // Waits until the peer or the server closes the connection, at most so long; true when it did.
  bool waitForClose(std::chrono::milliseconds limit);

 private:
  const int descriptor_;
};

// What becomes of a connection once a request is answered.
enum class Afterwards {
  kKeepOpen,  // the next request may follow
  kClose,
  kReset,  // closed with RST: the peer sees "connection reset"
  kHang,   // silent until the peer closes it
};

// Answers one request. Runs on a thread of the connection's own, so it may wait.
using Behaviour = std::function<Afterwards(LoopbackConnection&, const CapturedRequest&)>;

// A well-formed answer with a Content-Length.
Behaviour answer(int status, std::string body = {}, qvr::HTTPHeaders headers = {});

// These bytes, then what is said.
Behaviour rawAnswer(std::string bytes, Afterwards afterwards = Afterwards::kClose);

class LoopbackServer {
 public:
  // Answers each request as enqueued, or else as `otherwise` says.
  explicit LoopbackServer(Behaviour otherwise = answer(200, "{}"));

  // Closes all connections and waits for its threads.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  // The behaviour for the next request that has none yet.
  void enqueue(Behaviour behaviour);

  std::uint16_t port() const { return port_; }
  std::string url(std::string_view path = "/") const;

  // All requests so far, oldest first.
  std::vector<CapturedRequest> requests() const;

  // False when fewer have arrived by the deadline.
  bool waitForRequests(std::size_t count, double seconds = 20) const;
  bool waitForOpenConnections(std::size_t count, double seconds = 20) const;

  std::size_t connectionCount() const;      // ever accepted
  std::size_t peakOpenConnections() const;  // the most at one time

 private:
  void acceptConnections();
  void serve(int descriptor, std::size_t connection);
  Afterwards serveRequest(int descriptor, const CapturedRequest& request);
  void closeConnection(int descriptor, Afterwards afterwards);

  const Behaviour otherwise_;
  int listener_ = -1;
  std::uint16_t port_ = 0;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::deque<Behaviour> enqueued_;
  std::vector<CapturedRequest> requests_;
  std::set<int> open_;
  std::size_t connectionCount_ = 0;
  std::size_t peakOpen_ = 0;
  bool isStopping_ = false;
  std::vector<std::thread> connections_;
  std::thread acceptor_;
};

}  // namespace support
