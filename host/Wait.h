// Waiting for a completion handler of the library, never without a deadline.
//
//   Outcome<qvr::ErrorPtr> stored;
//   manager->setTokenToKeychain(token, provider, user, [stored](qvr::ErrorPtr error) {
//     stored.deliver(std::move(error));
//   });
//   std::optional<qvr::ErrorPtr> error = stored.wait(kKeychainDeadlineSeconds);
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "host/Deadline.h"

namespace host {

// How long a request to a provider may take, and how long the command waits for its handler: a
// margin longer, so that it is the session that reports the time-out.
inline constexpr double kRequestTimeoutSeconds = 60;
inline constexpr double kRequestDeadlineSeconds = kRequestTimeoutSeconds + 10;

// How long the command waits for the keychain, whose ports have deadlines of their own.
inline constexpr double kKeychainDeadlineSeconds = 90;

// One value on its way from a handler to the thread that waits for it. Copies share the value: a
// handler that comes after the deadline finds its own copy alive.
//
// Thread rule: any thread may deliver; one thread waits.
template <class T>
class Outcome {
 public:
  // Only the first delivery counts.
  void deliver(T value) const {
    const std::lock_guard lock(shared_->mutex);
    if (shared_->value) return;
    shared_->value = std::move(value);
    shared_->delivered.notify_all();
  }

  // Takes the value; nothing when the deadline passes first, this one or the command's own.
  std::optional<T> wait(double seconds) const {
    std::unique_lock lock(shared_->mutex);
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(secondsLeft(seconds)));
    shared_->delivered.wait_until(lock, deadline, [this] { return shared_->value.has_value(); });
    return std::exchange(shared_->value, std::nullopt);
  }

 private:
  struct Shared {
    std::mutex mutex;
    std::condition_variable delivered;
    std::optional<T> value;
  };
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace host
