#include "tests/support/TLSFront.h"

#include <stdexcept>

namespace support {
namespace {

// Prints its port, then serves until its standard input ends, as it does when the test goes.
constexpr const char* kServing = R"(
import os, select, socket, ssl, struct, sys, threading

def start(serve):
    listener = socket.create_server(("127.0.0.1", 0), backlog=128)
    print("port", listener.getsockname()[1], flush=True)
    def accept():
        while True:
            connection = listener.accept()[0]
            threading.Thread(target=serve, args=(connection,), daemon=True).start()
    threading.Thread(target=accept, daemon=True).start()
    sys.stdin.read()
    os._exit(0)

def server_context(certificate, key):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context
)";

constexpr const char* kFront = R"(
certificate, key, policy, backend_port = sys.argv[1:]
context = server_context(certificate, key)
if policy == "tls1.1":
    context.set_ciphers("ALL:@SECLEVEL=0")
    context.minimum_version = ssl.TLSVersion.TLSv1
    context.maximum_version = ssl.TLSVersion.TLSv1_1
if policy == "client-certificate":
    context.verify_mode = ssl.CERT_REQUIRED
    context.load_verify_locations(certificate)

# The peer has to see the alert, not a reset: closing with bytes unread would send one.
def drain(tls):
    tls.shutdown(socket.SHUT_WR)
    while tls.recv(65536):
        pass
    tls.close()

def say_goodbye(tls):
    tls.setblocking(False)
    try:
        tls.unwrap()
    except OSError:
        pass
    tls.close()

def reset(tls):
    tls.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    tls.close()

def pump(tls, backend):
    while True:
        ready = [tls] if tls.pending() else select.select([tls, backend], [], [])[0]
        if tls in ready:
            data = tls.recv(65536)
            if not data:
                return tls.close()
            backend.sendall(data)
        if backend in ready:
            try:
                data = backend.recv(65536)
            except ConnectionResetError:
                return reset(tls)
            if not data:
                return say_goodbye(tls)
            tls.sendall(data)

def serve(connection):
    if policy in ("hang-up", "plain-text"):
        connection.recv(65536)
        if policy == "plain-text":
            connection.sendall(b"HTTP/1.1 400 Bad Request\r\n\r\n")
        return connection.close()
    tls = context.wrap_socket(connection, server_side=True, do_handshake_on_connect=False)
    try:
        tls.do_handshake()
    except OSError:
        try:
            return drain(tls)
        except OSError:
            return
    with socket.create_connection(("127.0.0.1", int(backend_port))) as backend:
        try:
            pump(tls, backend)
        except OSError:
            tls.close()

start(serve)
)";

// RFC 9113: frames are a 24-bit length, a type, flags and a stream; 0x88 is ":status: 200" (RFC
// 7541 appendix A).
constexpr const char* kHTTP2 = R"(
certificate, key, policy = sys.argv[1:]
context = server_context(certificate, key)
context.set_alpn_protocols(["h2"])
connections = 0
DATA, HEADERS, RST_STREAM, SETTINGS, PING = 0, 1, 3, 4, 6
END_STREAM, ACK, END_HEADERS = 1, 1, 4

def frame(kind, flags, stream, payload=b""):
    return struct.pack(">I", len(payload))[1:] + bytes([kind, flags]) + struct.pack(">I", stream) + payload

def answer(stream, body):
    if policy == "reset-streams":
        return frame(RST_STREAM, 0, stream, struct.pack(">I", 2))
    return frame(HEADERS, END_HEADERS, stream, b"\x88") + frame(DATA, END_STREAM, stream, body)

def serve(connection):
    global connections
    connections += 1
    body = b"HTTP/2 connection %d" % connections
    tls = context.wrap_socket(connection, server_side=True)
    stream_of_bytes = tls.makefile("rb")
    if tls.selected_alpn_protocol() != "h2":
        while stream_of_bytes.readline() not in (b"\r\n", b""):
            pass
        body = b"HTTP/1.1" + (b" resumed" if tls.session_reused else b"")
        tls.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n%s" % (len(body), body))
        return tls.close()
    stream_of_bytes.read(24)  # the client's preface
    tls.sendall(frame(SETTINGS, 0, 0))
    waiting = []
    while True:
        head = stream_of_bytes.read(9)
        if len(head) < 9:
            return
        kind, flags, stream = head[3], head[4], struct.unpack(">I", head[5:])[0]
        payload = stream_of_bytes.read(int.from_bytes(head[:3], "big"))
        if kind == SETTINGS and not flags & ACK:
            tls.sendall(frame(SETTINGS, ACK, 0))
        if kind == PING and not flags & ACK:
            tls.sendall(frame(PING, ACK, 0, payload))
        if kind in (DATA, HEADERS) and flags & END_STREAM:
            waiting.append(stream)
            if policy != "in-pairs" or stream == 1 or len(waiting) == 2:
                tls.sendall(b"".join(answer(each, body) for each in waiting))
                waiting.clear()

start(serve)
)";

std::vector<std::string> pythonCommand(const char* program, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"python3", "-c", std::string(kServing) + program});
  return arguments;
}

std::uint16_t printedPort(ChildProcess& process) {
  if (!process.waitForOutput("\n")) throw std::runtime_error("no TLS server: " + process.error());
  return static_cast<std::uint16_t>(std::stoul(process.output().substr(5)));
}

std::string urlOf(std::uint16_t port, std::string_view path) {
  return "https://127.0.0.1:" + std::to_string(port) + std::string(path);
}

const char* nameOf(TLSFront::Policy policy) {
  switch (policy) {
    case TLSFront::Policy::kAtMostTLS11:
      return "tls1.1";
    case TLSFront::Policy::kWantsClientCertificate:
      return "client-certificate";
    case TLSFront::Policy::kHangsUpInHandshake:
      return "hang-up";
    case TLSFront::Policy::kAnswersInPlainText:
      return "plain-text";
    default:
      return "usual";
  }
}

const char* nameOf(HTTP2Server::Policy policy) {
  switch (policy) {
    case HTTP2Server::Policy::kAnswersInPairs:
      return "in-pairs";
    case HTTP2Server::Policy::kResetsStreams:
      return "reset-streams";
    default:
      return "usual";
  }
}

}  // namespace

TLSFront::TLSFront(const LoopbackServer& server, const Certificate& certificate, Policy policy)
    : process_({pythonCommand(kFront, {certificate.file, certificate.keyFile, nameOf(policy),
                                       std::to_string(server.port())}),
                {}}),
      port_(printedPort(process_)) {}

std::string TLSFront::url(std::string_view path) const {
  return urlOf(port_, path);
}

HTTP2Server::HTTP2Server(const Certificate& certificate, Policy policy)
    : process_(
          {pythonCommand(kHTTP2, {certificate.file, certificate.keyFile, nameOf(policy)}), {}}),
      port_(printedPort(process_)) {}

std::string HTTP2Server::url(std::string_view path) const {
  return urlOf(port_, path);
}

}  // namespace support
