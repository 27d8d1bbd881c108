#include "src/ports/URLReceiver.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "src/ports/BusLibrary.h"
#include "src/ports/Milliseconds.h"

namespace qvr {

namespace {

constexpr char kInterface[] = "org.freedesktop.Application";
constexpr char kBus[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";

constexpr char kFailed[] = "org.freedesktop.DBus.Error.Failed";
constexpr char kNotSupported[] = "org.freedesktop.DBus.Error.NotSupported";
constexpr char kLimitsExceeded[] = "org.freedesktop.DBus.Error.LimitsExceeded";

// How many messages process() takes from the bus before the host is asked again.
constexpr int kMostSteps = 64;

// What the bus answers to RequestName.
constexpr std::uint32_t kPrimaryOwner = 1;
constexpr std::uint32_t kInQueue = 2;

const BusLibrary& library() {
  return BusLibrary::shared();
}

int answer(sd_bus_message* call) {
  return library().sd_bus_reply_method_return(call, "");
}

int refuse(sd_bus_message* call, const char* name, const char* text) {
  const sd_bus_error error{name, text, 0};
  return library().sd_bus_reply_method_error(call, &error);
}

// The addresses of a call of Open, whose signature the bus library has checked.
std::vector<std::string> urlsOf(sd_bus_message* call) {
  std::vector<std::string> urls;
  const char* url = nullptr;
  library().sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "s");
  while (library().sd_bus_message_read(call, "s", &url) > 0)
    urls.emplace_back(url);
  return urls;
}

bool isTooLong(const std::string& url) {
  return url.size() > kLongestURL;
}

// Hands over the addresses of a call, every one for which there is time, and tells the caller what
// came of it.
void deliver(sd_bus_message* call, const URLReceiver::Handler& handler,
             BusConnection::Clock::time_point deadline) {
  const std::vector<std::string> urls = urlsOf(call);
  if (std::any_of(urls.begin(), urls.end(), isTooLong)) {
    refuse(call, kLimitsExceeded, "The address is longer than 1 MiB.");
    return;
  }
  bool areTaken = true;
  for (const std::string& url : urls) {
    if (BusConnection::Clock::now() >= deadline) {
      refuse(call, kFailed, "The application is leaving and has no time for the address.");
      return;
    }
    areTaken &= handler(url);
  }
  if (areTaken) {
    answer(call);
  } else {
    refuse(call, kFailed, "The application has no use for the address.");
  }
}

sd_bus_vtable entry(std::uint8_t type) {
  sd_bus_vtable entry;
  std::memset(&entry, 0, sizeof entry);
  entry.type = type;
  return entry;
}

// The macros for this refer to a symbol of libsystemd, which is not linked but loaded.
sd_bus_vtable startOfMethods() {
  sd_bus_vtable start = entry(_SD_BUS_VTABLE_START);
  start.x.start.element_size = sizeof start;
  return start;
}

sd_bus_vtable method(const char* name, const char* signature, sd_bus_message_handler_t handler) {
  sd_bus_vtable method = entry(_SD_BUS_VTABLE_METHOD);
  method.flags = SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_SENSITIVE;
  method.x.method.member = name;
  method.x.method.signature = signature;
  method.x.method.result = "";
  method.x.method.handler = handler;
  return method;
}

void setProblem(std::string* problem, const std::string& sentence) {
  if (problem != nullptr) *problem = sentence;
}

std::chrono::milliseconds timeUntil(BusConnection::Clock::time_point deadline) {
  return std::chrono::ceil<std::chrono::milliseconds>(deadline - BusConnection::Clock::now());
}

}  // namespace

std::string applicationPath(std::string busName) {
  std::replace(busName.begin(), busName.end(), '.', '/');
  std::replace(busName.begin(), busName.end(), '-', '_');
  return "/" + busName;
}

bool BusURLReceiver::start(const URLReceiverOptions& options, std::string* problem) {
  timeout_ = millisecondsOf(options.timeoutSeconds);
  const auto deadline = BusConnection::Clock::now() + timeout_;
  connection_ = BusConnection::open(options.busAddress, timeUntil(deadline), problem);
  if (!connection_) return false;
  if (!offerObject()) {
    setProblem(problem, "\"" + busName_ + "\" is no name for an application.");
    return false;
  }
  if (!requestName(deadline, problem)) return false;
  watch_ = BusWatch::make(connection_->get());
  if (!watch_) {
    setProblem(problem, std::string("The bus cannot be watched: ") + std::strerror(errno) + ".");
    return false;
  }
  settle();
  return true;
}

// Before the name is asked for: whom the bus starts for a message gets it with the name.
bool BusURLReceiver::offerObject() {
  sd_bus_slot* slot = nullptr;
  const int result = library().sd_bus_add_object_vtable(
      connection_->get(), &slot, applicationPath(busName_).c_str(), kInterface, methods(), this);
  object_.reset(slot);
  return result >= 0;
}

bool BusURLReceiver::requestName(BusConnection::Clock::time_point deadline, std::string* problem) {
  nameAcquired_ = subscribe("NameAcquired", true);
  nameLost_ = subscribe("NameLost", false);
  BusMessage call = connection_->makeCall(kBus, kBusPath, kBus, "RequestName");
  constexpr std::uint32_t kNoFlags = 0;  // wait for the name, and give it to nobody
  if (call) library().sd_bus_message_append(call.get(), "su", busName_.c_str(), kNoFlags);
  const BusReply reply = connection_->call(std::move(call), timeUntil(deadline));
  std::uint32_t result = 0;
  if (reply.isAnswer()) library().sd_bus_message_read(reply.message.get(), "u", &result);
  if (result == kPrimaryOwner) ownsName_ = true;
  if (result == kPrimaryOwner || result == kInQueue) return true;
  setProblem(problem, "The bus does not give the name \"" + busName_ + "\": " +
                          (reply.errorText.empty() ? "it does not answer." : reply.errorText));
  return false;
}

std::unique_ptr<BusSubscription> BusURLReceiver::subscribe(const char* signal, bool meansOwner) {
  return connection_->subscribe(kBus, kBusPath, kBus, signal,
                                [this, meansOwner](sd_bus_message* message) {
                                  const char* name = nullptr;
                                  library().sd_bus_message_read(message, "s", &name);
                                  if (name != nullptr && name == busName_) ownsName_ = meansOwner;
                                });
}

// One call at a time, and none is read ahead: who floods the application with calls must not keep
// the host from what else it waits for. The bus keeps the rest, and the descriptor stays readable.
bool BusURLReceiver::process(const Handler& handler) {
  const auto self = Ref<BusURLReceiver>::retain(this);  // the handler may drop the last reference
  for (int steps = 0; calls_.empty() && steps < kMostSteps; ++steps) {
    if (!step()) break;
  }
  if (!calls_.empty()) deliverNext(handler, BusConnection::Clock::time_point::max());
  settle();
  return !calls_.empty() || !connection_->isLost();
}

// The bus answers after all that it sent to the name, so that is here with the answer.
void BusURLReceiver::giveUpName(const Handler& handler) {
  const auto self = Ref<BusURLReceiver>::retain(this);
  const auto deadline = BusConnection::Clock::now() + timeout_;
  BusMessage call = connection_->makeCall(kBus, kBusPath, kBus, "ReleaseName");
  if (call) library().sd_bus_message_append(call.get(), "s", busName_.c_str());
  connection_->call(std::move(call), timeout_);
  ownsName_ = false;
  while (!calls_.empty())
    deliverNext(handler, deadline);
  settle();
}

// False when nothing has arrived.
bool BusURLReceiver::step() {
  const int processed = library().sd_bus_process(connection_->get(), nullptr);
  return processed > 0 || processed == -EINTR;
}

// Outside the bus library's steps: an exception of the handler must not pass through it.
void BusURLReceiver::deliverNext(const Handler& handler,
                                 BusConnection::Clock::time_point deadline) {
  const BusMessage call = std::move(calls_.front());
  calls_.pop_front();
  try {
    deliver(call.get(), handler, deadline);
  } catch (...) {
    refuse(call.get(), kFailed, "The application failed.");
    settle();
    throw;
  }
}

// After each use of the bus.
void BusURLReceiver::settle() {
  watch_->update(!calls_.empty());
  if (connection_->isLost()) ownsName_ = false;
}

const sd_bus_vtable* BusURLReceiver::methods() {
  static const sd_bus_vtable table[] = {
      startOfMethods(),
      method("Activate", "a{sv}", &answerActivate),
      method("Open", "asa{sv}", &queueOpen),
      method("ActivateAction", "sava{sv}", &refuseAction),
      entry(_SD_BUS_VTABLE_END),
  };
  return table;
}

int BusURLReceiver::queueOpen(sd_bus_message* call, void* receiver, sd_bus_error*) noexcept {
  static_cast<BusURLReceiver*>(receiver)->calls_.emplace_back(library().sd_bus_message_ref(call));
  return 1;  // it is answered when it has been delivered
}

// There is no window to be raised.
int BusURLReceiver::answerActivate(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return answer(call);
}

int BusURLReceiver::refuseAction(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return refuse(call, kNotSupported, "The application has no such action.");
}

inline namespace v1 {

Ref<URLReceiver> makeURLReceiver(const URLReceiverOptions& options, std::string* problem) {
  Ref<BusURLReceiver> receiver = makeRef<BusURLReceiver>(options.busName);
  if (!receiver->start(options, problem)) return nullptr;
  return receiver;
}

}  // namespace v1
}  // namespace qvr
