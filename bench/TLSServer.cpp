#include "bench/TLSServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace qvr::bench {
namespace {

constexpr const char* kSystemTrust = "/etc/ssl/certs/ca-certificates.crt";
constexpr int kMostConnections = 32;  // each has a thread, which waits for the next one afterwards

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

void runOpenSSL(const std::string& arguments) {
  const std::string command = "openssl " + arguments + " 2>/dev/null";
  require(std::system(command.c_str()) == 0, "the openssl command failed");
}

std::string tokenResponse() {
  return R"({"access_token":")" + TLSServer::accessToken() +
         R"(","token_type":"Bearer","expires_in":3599,"refresh_token":")" + std::string(500, 'r') +
         R"(","scope":"https://mail.google.com/ openid email","id_token":")" +
         std::string(400, 'i') + R"("})";
}

// The lengths of a request's parts, once its head has come whole.
struct Request {
  std::string_view target;
  bool isPost = false;
  std::size_t size = 0;
};

std::size_t contentLength(std::string_view head) {
  constexpr std::string_view kField = "\r\nContent-Length: ";
  const std::size_t at = head.find(kField);
  return at == std::string_view::npos ? 0
                                      : std::strtoul(head.data() + at + kField.size(), nullptr, 10);
}

// False when the rest of the request has still to come.
bool parse(const std::string& bytes, Request& request) {
  const std::size_t headEnd = bytes.find("\r\n\r\n");
  if (headEnd == std::string::npos) return false;
  const std::string_view head = std::string_view(bytes).substr(0, headEnd + 2);
  const std::size_t target = head.find(' ') + 1;
  request.target = head.substr(target, head.find(' ', target) - target);
  request.isPost = head.starts_with("POST ");
  request.size = headEnd + 4 + contentLength(head);
  return bytes.size() >= request.size;
}

std::string bodyFor(const Request& request) {
  static const std::string token = tokenResponse();
  if (request.isPost) return token;
  return std::string(std::strtoul(request.target.data() + 1, nullptr, 10), 'b');
}

// Head and body in one piece, so that they leave in as few records and packets as they need.
std::string answerTo(const Request& request, bool closes) {
  const std::string body = bodyFor(request);
  return "HTTP/1.1 200 OK\r\nDate: Thu, 01 Jan 2026 00:00:00 GMT\r\n"
         "Content-Type: application/json; charset=utf-8\r\nCache-Control: no-store\r\n"
         "Pragma: no-cache\r\n" +
         std::string(closes ? "Connection: close\r\n" : "") +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

bool receive(SSL* tls, std::string& bytes) {
  std::array<char, 16384> part{};
  const int size = SSL_read(tls, part.data(), part.size());
  if (size > 0) bytes.append(part.data(), static_cast<std::size_t>(size));
  return size > 0;
}

// Answers requests until the peer or a request closes the connection.
void serve(SSL* tls) {
  for (std::string bytes;;) {
    Request request;
    while (!parse(bytes, request))
      if (!receive(tls, bytes)) return;
    const bool closes = request.target.starts_with("/close");
    const std::string answer = answerTo(request, closes);
    bytes.erase(0, request.size);
    if (SSL_write(tls, answer.data(), static_cast<int>(answer.size())) <= 0 || closes) return;
  }
}

void serveConnections(int listener, SSL_CTX* context) {
  for (;;) {
    const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    const int on = 1;
    ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    SSL* const tls = SSL_new(context);
    SSL_set_fd(tls, connection);
    if (SSL_accept(tls) == 1) {
      serve(tls);
      SSL_shutdown(tls);
    }
    SSL_free(tls);
    ::close(connection);
  }
}

SSL_CTX* contextWith(const Certificates& certificates) {
  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  require(context != nullptr, "no TLS context");
  require(SSL_CTX_use_certificate_chain_file(context, certificates.chainFile().c_str()) == 1,
          "no certificate");
  require(
      SSL_CTX_use_PrivateKey_file(context, certificates.keyFile().c_str(), SSL_FILETYPE_PEM) == 1,
      "no key");
  return context;
}

int listenOnLoopback(std::uint16_t& port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  require(::bind(listener, generic, size) == 0 && ::listen(listener, 64) == 0 &&
              ::getsockname(listener, generic, &size) == 0,
          "no port to listen on");
  port = ntohs(address.sin_port);
  return listener;
}

[[noreturn]] void serveForever(int listener, const Certificates& certificates, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  ::signal(SIGPIPE, SIG_IGN);
  SSL_CTX* const context = contextWith(certificates);
  for (int thread = 1; thread < kMostConnections; ++thread)
    std::thread(serveConnections, listener, context).detach();
  serveConnections(listener, context);
  ::_exit(0);
}

}  // namespace

Certificates::Certificates() {
  std::string name = (std::filesystem::temp_directory_path() / "qvr-bench-XXXXXX").string();
  require(::mkdtemp(name.data()) != nullptr, "no temporary folder");
  folder_ = name;
  const std::string newKey =
      "req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 ";
  const std::string authority = folder_ + "/authority";
  runOpenSSL(newKey + "-subj /CN=authority -keyout " + authority + ".key -out " + authority +
             ".pem -addext basicConstraints=critical,CA:TRUE");
  runOpenSSL(newKey + "-subj /CN=127.0.0.1 -keyout " + keyFile() + " -out " + chainFile() +
             " -CA " + authority + ".pem -CAkey " + authority +
             ".key -addext subjectAltName=IP:127.0.0.1 -addext basicConstraints=CA:FALSE");
  std::ofstream trust(trustFile());
  trust << std::ifstream(kSystemTrust).rdbuf() << std::ifstream(authority + ".pem").rdbuf();
  require(trust.flush().good(), "no trust file");
}

Certificates::~Certificates() {
  std::filesystem::remove_all(folder_);
}

TLSServer::TLSServer(const Certificates& certificates) {
  const int listener = listenOnLoopback(port_);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  require(pid_ >= 0, "no process for the server");
  if (pid_ == 0) serveForever(listener, certificates, parent);
  ::close(listener);
}

TLSServer::~TLSServer() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

}  // namespace qvr::bench
