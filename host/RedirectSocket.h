// How a redirect gets from `open-url`, which the desktop starts, to the sign-in that waits for it:
// over a Unix socket in the user's runtime folder, named by a hash of the attempt's state, so that
// each of several sign-ins gets its own.
//
// The sender writes the URL and a newline; the listener answers with one word and a newline. Both
// sides check that the other one runs as the same user.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/Descriptor.h"
#include "host/Failure.h"

namespace host {

// The longest redirect URL that is carried.
inline constexpr std::size_t kMaximumRedirectSize = 1 << 20;

// What either side expects of the other.
struct RedirectPeer {
  std::chrono::milliseconds deadline{5000};  // for all that it has to say
  uid_t user = geteuid();                    // as whom it runs
};

// What became of a redirect.
enum class RedirectAnswer {
  kAccepted,       // the sign-in took it
  kNotThisSignIn,  // the sign-in that listens has another state
  kRefused,        // it is not one that this sign-in can use
  kNobodyWaiting,  // the sender's only: no sign-in listens for this state
  kNoAnswer,       // the sender's only: one listens, and did not answer in time
};

// The name of the socket for a state: part of its SHA-256, so that it is short, legal as a file
// name, and tells nothing about the state.
std::string redirectSocketName(std::string_view state);

// The receiving side. Thread rule: one thread.
class RedirectListener {
 public:
  using Receiver = std::function<RedirectAnswer(const std::string& url)>;

  // Listens in the folder, which must be private to the user. From here on a redirect waits in the
  // socket's queue until serve() is called. Sets *failure, and returns null, when it cannot.
  static std::unique_ptr<RedirectListener> listen(const std::string& folder, std::string_view state,
                                                  std::optional<Failure>* failure,
                                                  RedirectPeer peer = {});

  // Stops listening and removes the socket.
  ~RedirectListener();

  // For poll(): readable when serve() has something to do.
  int fileDescriptor() const { return events_.number(); }

  // Goes on with every connection that can go on, and never blocks: calls `receive` with each URL
  // that has arrived whole and sends what it answers. Drops connections of other users, and those
  // that are too slow or send too much.
  void serve(const Receiver& receive);

 private:
  struct Connection {
    Descriptor socket;
    std::chrono::steady_clock::time_point deadline;
    std::string received;
  };
  using Connections = std::list<Connection>;

  RedirectListener(std::string path, Descriptor socket, RedirectPeer peer);
  bool watch(int descriptor);
  void accept();
  bool read(Connection& connection, const Receiver& receive);
  void dropLateConnections();
  void armTimer();

  const std::string path_;
  const RedirectPeer peer_;
  Descriptor socket_;
  Descriptor timer_;
  Descriptor events_;
  Connections connections_;  // oldest first, hence in the order of their deadlines
};

// The sending side: hands the URL to the sign-in that waits for the state. Blocks no longer than
// the deadline.
RedirectAnswer sendRedirect(const std::string& folder, std::string_view state, std::string_view url,
                            RedirectPeer peer = {});

}  // namespace host
