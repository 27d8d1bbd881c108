#include "tests/support/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>

namespace support {
namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";

int check(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

int listenOnLoopback() {
  const int listener = check(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  check(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), "bind");
  check(::listen(listener, 128), "listen");
  return listener;
}

std::uint16_t portOf(int listener) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  check(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  return ntohs(address.sin_port);
}

// Reads requests, of which the next may begin in the bytes of the one before.
class RequestReader {
 public:
  explicit RequestReader(int descriptor) : descriptor_(descriptor) {}

  // Nothing when the peer closed the connection first.
  std::optional<CapturedRequest> next() {
    CapturedRequest request;
    std::size_t end = 0;
    while ((end = pending_.find(kHeadEnd)) == std::string::npos)
      if (!readMore()) return std::nullopt;
    request.head = take(end + kHeadEnd.size());
    const qvr::Text length = request.header("Content-Length");
    const std::size_t size = length ? std::stoul(*length) : 0;
    while (pending_.size() < size)
      if (!readMore()) return std::nullopt;
    request.body = take(size);
    return request;
  }

 private:
  bool readMore() {
    char buffer[65536];
    const ssize_t count = ::recv(descriptor_, buffer, sizeof buffer, 0);
    if (count > 0) pending_.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  }

  std::string take(std::size_t size) {
    std::string taken = pending_.substr(0, size);
    pending_.erase(0, size);
    return taken;
  }

  const int descriptor_;
  std::string pending_;
};

}  // namespace

std::string CapturedRequest::requestLine() const {
  return head.substr(0, head.find("\r\n"));
}

qvr::HTTPHeaders CapturedRequest::headers() const {
  qvr::HTTPHeaders result;
  std::size_t start = head.find("\r\n") + 2;
  for (std::size_t end = 0; (end = head.find("\r\n", start)) > start; start = end + 2) {
    const std::string line = head.substr(start, end - start);
    const std::size_t colon = line.find(": ");
    const bool hasValue = colon != std::string::npos;
    result.emplace_back(hasValue ? line.substr(0, colon) : line.substr(0, line.find(':')),
                        hasValue ? line.substr(colon + 2) : std::string());
  }
  return result;
}

qvr::Text CapturedRequest::header(std::string_view field) const {
  for (const auto& [name, value] : headers()) {
    if (::strcasecmp(name.c_str(), std::string(field).c_str()) == 0) return value;
  }
  return std::nullopt;
}

bool LoopbackConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool LoopbackConnection::waitForClose(std::chrono::milliseconds limit) {
  pollfd watched{descriptor_, POLLRDHUP, 0};
  return ::poll(&watched, 1, static_cast<int>(limit.count())) > 0;
}

Behaviour answer(int status, std::string body, qvr::HTTPHeaders headers) {
  std::string bytes = "HTTP/1.1 " + std::to_string(status) + " scripted\r\n";
  for (const auto& [field, value] : headers)
    bytes += field + ": " + value + "\r\n";
  const bool mayHaveBody = status != 204 && status != 304;
  if (mayHaveBody) bytes += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return rawAnswer(bytes + "\r\n" + body, Afterwards::kKeepOpen);
}

Behaviour rawAnswer(std::string bytes, Afterwards afterwards) {
  return [bytes = std::move(bytes), afterwards](LoopbackConnection& connection,
                                                const CapturedRequest&) {
    connection.send(bytes);
    return afterwards;
  };
}

LoopbackServer::LoopbackServer(Behaviour otherwise)
    : otherwise_(std::move(otherwise)), listener_(listenOnLoopback()), port_(portOf(listener_)) {
  acceptor_ = std::thread(&LoopbackServer::acceptConnections, this);
}

LoopbackServer::~LoopbackServer() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    for (const int descriptor : open_)
      ::shutdown(descriptor, SHUT_RDWR);
  }
  acceptor_.join();
  for (std::thread& connection : connections_)
    connection.join();
  ::close(listener_);
}

void LoopbackServer::enqueue(Behaviour behaviour) {
  const std::lock_guard lock(mutex_);
  enqueued_.push_back(std::move(behaviour));
}

std::string LoopbackServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

std::vector<CapturedRequest> LoopbackServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

bool LoopbackServer::waitForRequests(std::size_t count, double seconds) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::duration<double>(seconds),
                           [&] { return requests_.size() >= count; });
}

bool LoopbackServer::waitForOpenConnections(std::size_t count, double seconds) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::duration<double>(seconds),
                           [&] { return open_.size() == count; });
}

std::size_t LoopbackServer::connectionCount() const {
  const std::lock_guard lock(mutex_);
  return connectionCount_;
}

std::size_t LoopbackServer::peakOpenConnections() const {
  const std::lock_guard lock(mutex_);
  return peakOpen_;
}

// The listener is shut down when the server goes, which ends accept().
void LoopbackServer::acceptConnections() {
  for (;;) {
    const int descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) return;
    const std::lock_guard lock(mutex_);
    open_.insert(descriptor);
    if (isStopping_) ::shutdown(descriptor, SHUT_RDWR);
    peakOpen_ = std::max(peakOpen_, open_.size());
    connections_.emplace_back(&LoopbackServer::serve, this, descriptor, connectionCount_++);
    changed_.notify_all();
  }
}

void LoopbackServer::serve(int descriptor, std::size_t connection) {
  RequestReader reader(descriptor);
  Afterwards afterwards = Afterwards::kKeepOpen;
  while (afterwards == Afterwards::kKeepOpen) {
    std::optional<CapturedRequest> request = reader.next();
    if (!request) break;
    request->connection = connection;
    afterwards = serveRequest(descriptor, *request);
  }
  closeConnection(descriptor, afterwards);
}

Afterwards LoopbackServer::serveRequest(int descriptor, const CapturedRequest& request) {
  Behaviour behaviour = otherwise_;
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    changed_.notify_all();
    if (!enqueued_.empty()) {
      behaviour = std::move(enqueued_.front());
      enqueued_.pop_front();
    }
  }
  LoopbackConnection loopback(descriptor);
  return behaviour(loopback, request);
}

void LoopbackServer::closeConnection(int descriptor, Afterwards afterwards) {
  if (afterwards == Afterwards::kHang) {
    LoopbackConnection(descriptor).waitForClose(std::chrono::minutes(1));
  }
  if (afterwards == Afterwards::kReset) {
    const linger atOnce{1, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  }
  const std::lock_guard lock(mutex_);
  open_.erase(descriptor);
  ::close(descriptor);
  changed_.notify_all();
}

}  // namespace support
