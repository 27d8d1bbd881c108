// The receiver behind makeURLReceiver: org.freedesktop.Application on the session bus.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Desktop.h"
#include "src/ports/BusConnection.h"
#include "src/ports/BusWatch.h"

namespace qvr {

// A longer one is refused: it is no redirect, and nobody should have to carry it around.
inline constexpr std::size_t kLongestURL = std::size_t{1} << 20;

// The object path of an application: "org.example.My-Mail" has "/org/example/My_Mail".
std::string applicationPath(std::string busName);

class BusURLReceiver final : public URLReceiver {
 public:
  explicit BusURLReceiver(std::string busName) : busName_(std::move(busName)) {}

  // Connects, offers the object and asks for the name. Otherwise false, and *problem says why.
  bool start(const URLReceiverOptions& options, std::string* problem);

  int fileDescriptor() const override { return watch_->fileDescriptor(); }
  bool process(const Handler& handler) override;
  bool ownsName() const override { return ownsName_; }
  void giveUpName(const Handler& handler) override;

 private:
  bool offerObject();
  bool requestName(BusConnection::Clock::time_point deadline, std::string* problem);
  std::unique_ptr<BusSubscription> subscribe(const char* signal, bool meansOwner);

  bool step();
  void deliverNext(const Handler& handler, BusConnection::Clock::time_point deadline);
  void settle();

  // What the bus calls: `receiver` is this object, and `call` one of the object's methods.
  static int queueOpen(sd_bus_message* call, void* receiver, sd_bus_error*) noexcept;
  static int answerActivate(sd_bus_message* call, void* receiver, sd_bus_error*) noexcept;
  static int refuseAction(sd_bus_message* call, void* receiver, sd_bus_error*) noexcept;
  static const sd_bus_vtable* methods();

  const std::string busName_;
  std::chrono::milliseconds timeout_{};  // of the start, and of giving the name up
  bool ownsName_ = false;
  std::deque<BusMessage> calls_;  // of Open, not yet answered

  // In this order, so that the connection goes last.
  std::unique_ptr<BusConnection> connection_;
  std::unique_ptr<BusWatch> watch_;
  std::unique_ptr<BusSubscription> nameAcquired_;
  std::unique_ptr<BusSubscription> nameLost_;
  BusSlot object_;
};

}  // namespace qvr
