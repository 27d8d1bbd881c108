// Waiting for other threads: for events, with a deadline in place of a sleep.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "QVROAuth2Client/platform/Executor.h"

namespace support {

// Reaches zero when enough threads have arrived. May be waited for by several threads.
class Countdown {
 public:
  explicit Countdown(std::size_t count = 1) : count_(count) {}

  void arrive() {
    std::lock_guard lock(mutex_);
    if (count_ > 0 && --count_ == 0) reachedZero_.notify_all();
  }

  // True when zero was reached before the deadline, which only a broken test meets.
  [[nodiscard]] bool wait(std::chrono::seconds deadline = std::chrono::seconds(60)) {
    std::unique_lock lock(mutex_);
    return reachedZero_.wait_for(lock, deadline, [this] { return count_ == 0; });
  }

  // Two threads that both meet here within the deadline were here at the same time.
  [[nodiscard]] bool meet() {
    arrive();
    return wait();
  }

 private:
  std::mutex mutex_;
  std::condition_variable reachedZero_;
  std::size_t count_;
};

// Returns true when everything that was handed to the queue before has run.
[[nodiscard]] inline bool drain(const qvr::Ref<qvr::Executor>& queue) {
  const auto reached = std::make_shared<Countdown>();
  queue->async([reached] { reached->arrive(); });
  return reached->wait();
}

// Runs `work(index)` on so many threads at once, and waits for them.
inline void runOnThreads(std::size_t count, const std::function<void(std::size_t)>& work) {
  Countdown start(count);
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < count; ++index) {
    threads.emplace_back([&, index] {
      if (start.meet()) work(index);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace support
