// A fast HTTPS server on 127.0.0.1 in a process of its own, for benchmarks of requests, and a
// certificate that it shows.
#ifndef QVR_BENCH_TLS_SERVER_H
#define QVR_BENCH_TLS_SERVER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace qvr::bench {

// An authority of its own and a certificate for 127.0.0.1, made in a temporary folder that goes
// with the object. The trust file is the system's bundle with this authority at its end: as large
// as the one that a desktop's requests read.
class Certificates {
 public:
  Certificates();
  ~Certificates();
  Certificates(const Certificates&) = delete;
  Certificates& operator=(const Certificates&) = delete;

  std::string chainFile() const { return folder_ + "/server.pem"; }
  std::string keyFile() const { return folder_ + "/server.key"; }
  std::string trustFile() const { return folder_ + "/trust.pem"; }

 private:
  std::string folder_;
};

// Speaks HTTP/1.1. A POST is answered with a token response of about 2 KB, GET /<n> with a body of
// n bytes. Below "/close" each connection is closed after its first answer. Runs until the object
// goes or the process ends. Make it before any thread.
class TLSServer {
 public:
  explicit TLSServer(const Certificates& certificates);
  ~TLSServer();
  TLSServer(const TLSServer&) = delete;
  TLSServer& operator=(const TLSServer&) = delete;

  std::string url(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(port_) + path;
  }

  // The access token in its token responses.
  static std::string accessToken() { return std::string(1000, 'a'); }

 private:
  std::uint16_t port_ = 0;
  pid_t pid_ = -1;
};

}  // namespace qvr::bench

#endif
