#include "src/ports/BusConnection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "src/ports/BusLibrary.h"

namespace qvr {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

const BusLibrary& library() {
  return BusLibrary::shared();
}

// For sd-bus: our own deadline alone counts, so that it can be told from a NoReply that was sent.
constexpr std::uint64_t kNoTimeout = UINT64_MAX;

// How many calls may wait for their answers at once; a bus refuses too many.
constexpr std::size_t kMostPending = 64;

BusReply errorReply(const char* name, const char* text) {
  BusReply reply;
  reply.kind = BusReply::Kind::kError;
  reply.errorName = name == nullptr ? "" : name;
  reply.errorText = text == nullptr ? "" : text;
  return reply;
}

BusReply replyOf(BusMessage answer) {
  const sd_bus_error* const error = library().sd_bus_message_get_error(answer.get());
  if (error != nullptr) return errorReply(error->name, error->message);
  BusReply reply;
  reply.kind = BusReply::Kind::kAnswer;
  reply.message = std::move(answer);
  return reply;
}

// Calls on their way. sd-bus holds their addresses.
class PendingCalls {
 public:
  PendingCalls(sd_bus* bus, std::vector<BusMessage> messages)
      : bus_(bus), messages_(std::move(messages)), calls_(messages_.size()) {}

  // Sends as many as may wait at once; true when all are answered.
  bool advance() {
    while (sent_ < calls_.size() && sent_ - answered_ < kMostPending)
      send(sent_++);
    return answered_ == calls_.size();
  }

  // What came of them; `isLost` tells what became of those without an answer.
  std::vector<BusReply> replies(bool isLost) {
    std::vector<BusReply> result;
    for (Call& call : calls_) {
      if (call.answer) call.reply = replyOf(std::move(call.answer));
      if (!call.isAnswered && !isLost) call.reply.kind = BusReply::Kind::kTimedOut;
      result.push_back(std::move(call.reply));
    }
    return result;
  }

 private:
  struct Call {
    PendingCalls* owner = nullptr;
    bool isAnswered = false;
    BusMessage answer{};
    BusReply reply{};
    BusSlot slot{};
  };

  void send(std::size_t index) {
    Call& call = calls_[index];
    call.owner = this;
    const int result = startCall(call, messages_[index].get());
    if (result >= 0) return;
    const bool isLost = library().sd_bus_is_open(bus_) <= 0;
    if (!isLost) call.reply = errorReply(SD_BUS_ERROR_INVALID_ARGS, std::strerror(-result));
    finish(call);
  }

  // A negative result is an errno.
  int startCall(Call& call, sd_bus_message* message) const {
    if (message == nullptr) return -EINVAL;
    sd_bus_slot* slot = nullptr;
    const int result =
        library().sd_bus_call_async(bus_, &slot, message, &receive, &call, kNoTimeout);
    call.slot.reset(slot);
    return result;
  }

  static int receive(sd_bus_message* message, void* data, sd_bus_error*) noexcept {
    auto& call = *static_cast<Call*>(data);
    call.answer.reset(library().sd_bus_message_ref(message));
    call.owner->finish(call);
    return 0;
  }

  void finish(Call& call) {
    call.isAnswered = true;
    ++answered_;
  }

  sd_bus* const bus_;
  std::vector<BusMessage> messages_;
  std::vector<Call> calls_;
  std::size_t sent_ = 0;
  std::size_t answered_ = 0;
};

// Starts to connect; a negative result is an errno.
int start(const std::string& address, sd_bus** bus) {
  if (address.empty()) return library().sd_bus_open_user(bus);
  int result = library().sd_bus_new(bus);
  if (result >= 0) result = library().sd_bus_set_address(*bus, address.c_str());
  if (result >= 0) result = library().sd_bus_set_bus_client(*bus, 1);
  if (result >= 0) result = library().sd_bus_start(*bus);
  return result;
}

std::string reasonOf(int error) {
  if (error == ENOMEDIUM) return "neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is set";
  return std::strerror(error);
}

void setProblem(std::string* problem, const std::string& sentence) {
  if (problem != nullptr) *problem = sentence;
}

}  // namespace

void BusUnref::operator()(sd_bus* bus) const {
  library().sd_bus_close_unref(bus);
}

void BusUnref::operator()(sd_bus_message* message) const {
  library().sd_bus_message_unref(message);
}

void BusUnref::operator()(sd_bus_slot* slot) const {
  library().sd_bus_slot_unref(slot);
}

std::unique_ptr<BusConnection> BusConnection::open(const std::string& address, milliseconds timeout,
                                                   std::string* problem) {
  const Clock::time_point deadline = Clock::now() + timeout;
  if (!library().problem.empty()) {
    setProblem(problem, "D-Bus cannot be used: " + library().problem + ".");
    return nullptr;
  }
  sd_bus* bus = nullptr;
  const int result = start(address, &bus);
  std::unique_ptr<BusConnection> connection;
  if (bus != nullptr) connection.reset(new BusConnection(bus));
  if (result < 0) {
    setProblem(problem, "There is no D-Bus session: " + reasonOf(-result) + ".");
    return nullptr;
  }
  const auto isReady = [bus] { return library().sd_bus_is_ready(bus) > 0; };
  if (connection->processUntil(isReady, deadline)) return connection;
  setProblem(problem, connection->isLost() ? "The D-Bus session closed the connection."
                                           : "The D-Bus session does not answer.");
  return nullptr;
}

BusMessage BusConnection::makeCall(const std::string& destination, const std::string& path,
                                   const std::string& interface, const std::string& member) const {
  sd_bus_message* message = nullptr;
  library().sd_bus_message_new_method_call(bus_.get(), &message, destination.c_str(), path.c_str(),
                                           interface.c_str(), member.c_str());
  return BusMessage(message);
}

BusReply BusConnection::call(BusMessage message, milliseconds timeout) {
  std::vector<BusMessage> messages;
  messages.push_back(std::move(message));
  return std::move(callAll(std::move(messages), timeout).front());
}

std::vector<BusReply> BusConnection::callAll(std::vector<BusMessage> messages,
                                             milliseconds timeout) {
  PendingCalls calls(bus_.get(), std::move(messages));
  processUntil([&calls] { return calls.advance(); }, Clock::now() + timeout);
  return calls.replies(isLost());
}

bool BusConnection::processUntil(const std::function<bool()>& isDone, Clock::time_point deadline) {
  for (;;) {
    if (isDone()) return true;
    if (isLost()) return false;
    const int processed = library().sd_bus_process(bus_.get(), nullptr);
    if (processed < 0 && processed != -EINTR) isBroken_ = true;
    const auto left = std::chrono::ceil<microseconds>(deadline - Clock::now());
    if (left.count() <= 0) return isDone();
    if (processed != 0) continue;
    library().sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left.count()));
  }
}

std::unique_ptr<BusSubscription> BusConnection::subscribe(const std::string& sender,
                                                          const std::string& path,
                                                          const std::string& interface,
                                                          const std::string& member,
                                                          BusSubscription::Handler handler) {
  std::unique_ptr<BusSubscription> subscription(new BusSubscription(std::move(handler)));
  sd_bus_slot* slot = nullptr;
  const int result = library().sd_bus_match_signal_async(
      bus_.get(), &slot, sender.c_str(), path.c_str(), interface.c_str(), member.c_str(),
      &BusSubscription::receive, nullptr, subscription.get());
  if (result < 0) return nullptr;
  subscription->slot_.reset(slot);
  return subscription;
}

int BusSubscription::receive(sd_bus_message* signal, void* subscription, sd_bus_error*) noexcept {
  static_cast<BusSubscription*>(subscription)->handler_(signal);
  return 0;
}

bool BusConnection::isLost() const {
  return isBroken_ || library().sd_bus_is_open(bus_.get()) <= 0;
}

}  // namespace qvr
