#include "host/RedirectSocket.h"

#include <dirent.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/HashedName.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kNameSuffix = ".redirect";
constexpr std::size_t kMaximumConnections = 64;
constexpr int kBacklog = 16;

struct Word {
  RedirectAnswer answer;
  std::string_view text;
};

constexpr std::array<Word, 3> kWords{{{RedirectAnswer::kAccepted, "accepted\n"},
                                      {RedirectAnswer::kNotThisSignIn, "not this sign-in\n"},
                                      {RedirectAnswer::kRefused, "refused\n"}}};

std::optional<sockaddr_un> addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

bool connectTo(int socket, const std::string& path) {
  const std::optional<sockaddr_un> address = addressOf(path);
  if (!address) return false;
  return connect(socket, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
}

// True when the process at the other end runs as `user`.
bool peerIs(int socket, uid_t user) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == user;
}

// Nobody listens behind a socket that refuses connections. One that is a minute old was not just
// made by a process that is about to listen.
bool isStale(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
  if (time(nullptr) - status.st_mtime < 60) return false;
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return probe && !connectTo(probe.number(), path) && errno == ECONNREFUSED;
}

// What processes that were killed left behind. Such a socket does no harm but to lie there.
void removeStaleSockets(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
  if (!entries) return;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string name = entry->d_name;
    const std::string path = folder + "/" + name;
    if (name.ends_with(kNameSuffix) && isStale(path)) unlink(path.c_str());
  }
}

Failure cannotListen(const std::string& path, int error) {
  return {kFailed, "cannot listen for the redirect at " + path + ": " +
                       std::generic_category().message(error)};
}

// Waits until the socket is ready; false when the deadline passes first.
bool waitFor(int socket, short event, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd waiting{socket, event, 0};
  return left > 0 && poll(&waiting, 1, static_cast<int>(left)) > 0;
}

bool sendAll(int socket, std::string_view bytes, Clock::time_point deadline) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    } else if ((errno != EAGAIN && errno != EINTR) || !waitFor(socket, POLLOUT, deadline)) {
      return false;
    }
  }
  return true;
}

RedirectAnswer readAnswer(int socket, Clock::time_point deadline) {
  std::string received;
  while (received.size() < 64 && !received.ends_with('\n') && waitFor(socket, POLLIN, deadline)) {
    char buffer[64];
    const ssize_t size = recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
    if (size <= 0) break;
    received.append(buffer, static_cast<std::size_t>(size));
  }
  for (const Word& word : kWords) {
    if (received == word.text) return word.answer;
  }
  return RedirectAnswer::kNoAnswer;
}

// Bounds connect(), which waits while the listener's queue is full.
void setSendTimeout(int socket, std::chrono::milliseconds time) {
  timeval timeout{};
  timeout.tv_sec = static_cast<time_t>(time.count() / 1000);
  timeout.tv_usec = static_cast<suseconds_t>(time.count() % 1000 * 1000);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

}  // namespace

std::string redirectSocketName(std::string_view state) {
  return hashedName(state) + std::string(kNameSuffix);
}

std::unique_ptr<RedirectListener> RedirectListener::listen(const std::string& folder,
                                                           std::string_view state,
                                                           std::optional<Failure>* failure,
                                                           RedirectPeer peer) {
  removeStaleSockets(folder);
  const std::string path = folder + "/" + redirectSocketName(state);
  const auto fail = [&](int error) {
    *failure = cannotListen(path, error);
    return nullptr;
  };
  const std::optional<sockaddr_un> address = addressOf(path);
  if (!address) return fail(ENAMETOOLONG);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) return fail(errno);
  if (bind(socket.number(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0)
    return fail(errno);
  std::unique_ptr<RedirectListener> listener(new RedirectListener(path, std::move(socket), peer));
  if (chmod(path.c_str(), 0600) != 0 || ::listen(listener->socket_.number(), kBacklog) != 0 ||
      !listener->watch(listener->socket_.number()) || !listener->watch(listener->timer_.number()))
    return fail(errno);
  return listener;
}

RedirectListener::RedirectListener(std::string path, Descriptor socket, RedirectPeer peer)
    : path_(std::move(path)),
      peer_(peer),
      socket_(std::move(socket)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      events_(epoll_create1(EPOLL_CLOEXEC)) {}

RedirectListener::~RedirectListener() {
  unlink(path_.c_str());
}

bool RedirectListener::watch(int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return epoll_ctl(events_.number(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void RedirectListener::serve(const Receiver& receive) {
  std::array<epoll_event, 16> events{};
  const int count = epoll_wait(events_.number(), events.data(), static_cast<int>(events.size()), 0);
  for (int i = 0; i < count; ++i) {
    const int ready = events[static_cast<std::size_t>(i)].data.fd;
    if (ready == socket_.number()) accept();
    const auto connection =
        std::find_if(connections_.begin(), connections_.end(),
                     [&](const Connection& each) { return each.socket.number() == ready; });
    if (connection != connections_.end() && !read(*connection, receive))
      connections_.erase(connection);
  }
  dropLateConnections();
  armTimer();
}

void RedirectListener::accept() {
  Descriptor socket(accept4(socket_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket || !peerIs(socket.number(), peer_.user) || !watch(socket.number())) return;
  if (connections_.size() == kMaximumConnections) connections_.pop_front();
  connections_.push_back({std::move(socket), Clock::now() + peer_.deadline, {}});
}

// Takes what has arrived; false when the connection is done with.
bool RedirectListener::read(Connection& connection, const Receiver& receive) {
  const int socket = connection.socket.number();
  const auto answer = [socket](RedirectAnswer what) {
    const auto word = std::find_if(kWords.begin(), kWords.end(),
                                   [what](const Word& each) { return each.answer == what; });
    if (word != kWords.end())
      send(socket, word->text.data(), word->text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return false;
  };
  char buffer[16384];
  ssize_t size = 0;
  while ((size = recv(socket, buffer, sizeof buffer, 0)) > 0) {
    std::string& received = connection.received;
    const std::size_t known = received.size();
    received.append(buffer, static_cast<std::size_t>(size));
    const std::size_t end = received.find('\n', known);
    if (std::min(end, received.size()) > kMaximumRedirectSize)
      return answer(RedirectAnswer::kRefused);
    if (end != std::string::npos) return answer(receive(received.substr(0, end)));
  }
  return size < 0 && (errno == EAGAIN || errno == EINTR);
}

void RedirectListener::dropLateConnections() {
  while (!connections_.empty() && connections_.front().deadline <= Clock::now())
    connections_.pop_front();
}

// Wakes poll() when the oldest connection becomes late. (libstdc++'s steady clock is the timer's.)
void RedirectListener::armTimer() {
  itimerspec time{};
  if (!connections_.empty()) {
    const auto due = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         connections_.front().deadline.time_since_epoch())
                         .count();
    time.it_value.tv_sec = static_cast<time_t>(due / 1'000'000'000);
    time.it_value.tv_nsec = static_cast<long>(due % 1'000'000'000);
  }
  timerfd_settime(timer_.number(), TFD_TIMER_ABSTIME, &time, nullptr);
}

RedirectAnswer sendRedirect(const std::string& folder, std::string_view state, std::string_view url,
                            RedirectPeer peer) {
  const Clock::time_point end = Clock::now() + peer.deadline;
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) return RedirectAnswer::kNoAnswer;
  setSendTimeout(socket.number(), peer.deadline);
  if (!connectTo(socket.number(), folder + "/" + redirectSocketName(state)))
    return errno == EAGAIN ? RedirectAnswer::kNoAnswer : RedirectAnswer::kNobodyWaiting;
  if (!peerIs(socket.number(), peer.user)) return RedirectAnswer::kNobodyWaiting;
  sendAll(socket.number(), std::string(url) + "\n", end);
  return readAnswer(socket.number(), end);
}

}  // namespace host
