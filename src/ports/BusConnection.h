// A connection to a D-Bus message bus, by sd-bus, on which every wait has a deadline.
//
// sd-bus answers NoReply alike for a call that took too long, a peer that died and a bus that was
// lost; here they are told apart. libsystemd is loaded with the first connection (BusLibrary.h).
//
// Thread rule: one thread at a time. A forked child must not use its parent's connection.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace qvr {

struct BusUnref {
  void operator()(sd_bus* bus) const;
  void operator()(sd_bus_message* message) const;
  void operator()(sd_bus_slot* slot) const;
};
using BusMessage = std::unique_ptr<sd_bus_message, BusUnref>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusUnref>;

// What came of a call.
struct BusReply {
  enum class Kind {
    kAnswer,    // `message` is the method's return
    kError,     // the peer or the bus answered with an error: `errorName`, `errorText`
    kTimedOut,  // nothing came before the deadline; a late answer is dropped
    kLost,      // the connection to the bus is gone, and with it this object's use
  };
  Kind kind = Kind::kLost;
  BusMessage message{};
  std::string errorName{};
  std::string errorText{};

  bool isAnswer() const { return kind == Kind::kAnswer; }
};

// Calls `handler` for each signal that matches, from within the connection's own calls, until it is
// destroyed, which has to be before the connection is.
class BusSubscription {
 public:
  // It must not throw.
  using Handler = std::function<void(sd_bus_message* signal)>;

 private:
  friend class BusConnection;
  explicit BusSubscription(Handler handler) : handler_(std::move(handler)) {}
  static int receive(sd_bus_message* signal, void* subscription, sd_bus_error*) noexcept;

  const Handler handler_;
  BusSlot slot_{};
};

class BusConnection {
 public:
  using Clock = std::chrono::steady_clock;

  // Connects and says hello. `address` empty: the session's own, from the environment. Null when
  // that fails or takes longer than `timeout`; *problem, unless null, then says why in a sentence.
  static std::unique_ptr<BusConnection> open(const std::string& address,
                                             std::chrono::milliseconds timeout,
                                             std::string* problem);

  sd_bus* get() const { return bus_.get(); }

  // A method call to be filled in; null when there is no memory or a name is not legal.
  BusMessage makeCall(const std::string& destination, const std::string& path,
                      const std::string& interface, const std::string& member) const;

  // Sends the call and waits for its answer, processing what else arrives meanwhile. A null message
  // is answered with the error InvalidArgs.
  BusReply call(BusMessage message, std::chrono::milliseconds timeout);

  // Sends the calls without waiting for each other's answers; the replies are in the calls' order.
  // The timeout is that of all together.
  std::vector<BusReply> callAll(std::vector<BusMessage> messages,
                                std::chrono::milliseconds timeout);

  // Processes what arrives until `isDone` answers true. False at the deadline and when the
  // connection is lost; isLost() tells which.
  bool processUntil(const std::function<bool()>& isDone, Clock::time_point deadline);

  // The bus is told without waiting for its answer: it works in the order of what it is sent, so
  // that no signal of a later call is missed. Null when a name is not legal.
  std::unique_ptr<BusSubscription> subscribe(const std::string& sender, const std::string& path,
                                             const std::string& interface,
                                             const std::string& member,
                                             BusSubscription::Handler handler);

  bool isLost() const;

 private:
  explicit BusConnection(sd_bus* bus) : bus_(bus) {}

  const std::unique_ptr<sd_bus, BusUnref> bus_;
  bool isBroken_ = false;
};

}  // namespace qvr
