// TLS for the loopback server, and a small HTTP/2 server, each a child process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TestCertificates.h"

namespace support {

// Takes TLS connections on a port of 127.0.0.1 and passes what they carry to a LoopbackServer, one
// plain connection for each.
class TLSFront {
 public:
  enum class Policy {
    kUsual,
    kAtMostTLS11,
    kWantsClientCertificate,
    kHangsUpInHandshake,  // reads the client's hello and closes
    kAnswersInPlainText,
  };

  TLSFront(const LoopbackServer& server, const Certificate& certificate,
           Policy policy = Policy::kUsual);

  std::string url(std::string_view path = "/") const;

 private:
  ChildProcess process_;
  std::uint16_t port_;
};

// Offers HTTP/2 over TLS. Every request is answered 200 with a body that counts the connections so
// far: "HTTP/2 connection 1". A client that does not speak HTTP/2 gets one answer over HTTP/1.1:
// "HTTP/1.1", or "HTTP/1.1 resumed" when the TLS session of an earlier connection was resumed.
class HTTP2Server {
 public:
  enum class Policy {
    kAnswers,
    kAnswersInPairs,  // after the first request: holds an answer back until two are waiting
    kResetsStreams,
  };

  explicit HTTP2Server(const Certificate& certificate, Policy policy = Policy::kAnswers);

  std::string url(std::string_view path = "/") const;

 private:
  ChildProcess process_;
  std::uint16_t port_;
};

}  // namespace support
