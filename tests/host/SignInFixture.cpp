#include "tests/host/SignInFixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "host/Record.h"

namespace host {

namespace {

constexpr int kPatienceMilliseconds = 20'000;

}  // namespace

Pipe::Pipe() {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  readEnd = Descriptor(ends[0]);
  writeEnd = Descriptor(ends[1]);
}

void Pipe::write(std::string_view text) const {
  EXPECT_EQ(::write(writeEnd.number(), text.data(), text.size()),
            static_cast<ssize_t>(text.size()));
}

std::string Pipe::readAll() {
  writeEnd.close();
  std::string text;
  char buffer[4096];
  for (ssize_t size = 0; (size = read(readEnd.number(), buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(size));
  return text;
}

RawConnection::RawConnection(const std::string& path)
    : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  isConnected_ =
      connect(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool RawConnection::send(std::string_view text) const {
  const ssize_t sent = ::send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL);
  return sent == static_cast<ssize_t>(text.size());
}

std::string RawConnection::readToEnd() const {
  std::string text;
  char buffer[4096];
  pollfd waiting{socket_.number(), POLLIN, 0};
  while (poll(&waiting, 1, kPatienceMilliseconds) > 0) {
    const ssize_t size = recv(socket_.number(), buffer, sizeof buffer, 0);
    if (size <= 0) return text;
    text.append(buffer, static_cast<std::size_t>(size));
  }
  ADD_FAILURE() << "the other side neither answers nor closes";
  return text;
}

void interrupt(const Pipe& signals) {
  signalfd_siginfo information{};
  information.ssi_signo = SIGINT;
  signals.write(std::string_view(reinterpret_cast<const char*>(&information), sizeof information));
}

SignInTest::SignInTest() {
  install();
  options.account = microsoft;
  options.timeoutSeconds = 60;
  environment = {browser, folder.file("run"), input.readEnd.number(), signals.readEnd.number()};
}

int SignInTest::run() {
  const host_test::Printed printed =
      host_test::collect([this] { return runSignIn(options, environment); });
  out = printed.output;
  error = printed.error;
  return printed.status;
}

void SignInTest::answerWithAToken() {
  answerWith(200, R"({"access_token": "the-access-token", "token_type": "Bearer",
                      "expires_in": 3599, "refresh_token": "the-refresh-token"})");
}

std::string SignInTest::redirectWith(std::string_view pairs) const {
  const std::string query = browser->opened.back().query().value();
  const std::size_t start = query.find("state=");
  const std::string pair = query.substr(start, query.find('&', start) - start);
  const bool isGoogle = options.account.provider == google.provider;
  const std::string uri =
      isGoogle ? "com.example.mail:/oauth2/auth" : "msauth.org.example.mail://auth";
  return uri + "?" + std::string(pairs) + "&" + pair;
}

void SignInTest::acceptInTheBrowser() {
  browser->onOpen = [this](const qvr::URL&) { paste(accept()); };
}

qvr::Ref<QVROAuth2Token> SignInTest::storedRecord() const {
  qvr::ErrorPtr readError;
  return readRecord(options.account, &readError);
}

}  // namespace host
